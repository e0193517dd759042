#pragma once

#include "process/SystemdHandles.h"

#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <vector>

namespace hosts::linux_host {

/// Gathers the names of changed properties, and signals them together: the first change at the end
/// of the run-loop turn, and those that follow at most every 50 ms. While messages are queued for
/// the bus, it gathers on.
class PropertyChanges {
public:
    /// The connection is not owned. It is attached to an event loop already.
    explicit PropertyChanges(sd_bus* bus) : bus_(bus) {}
    ~PropertyChanges() = default;
    PropertyChanges(const PropertyChanges&) = delete;
    PropertyChanges& operator=(const PropertyChanges&) = delete;

    /// Prepares the event source. Call it once, before `note`. Gives 0 or a negative errno.
    [[nodiscard]] int start();

    /// The property is to be signalled.
    void note(std::string_view property);

private:
    void signal();

    sd_bus* bus_;
    process::EventSource timer_; ///< set to the earliest next signal, enabled while one is pending
    std::vector<std::string> names_; ///< of the changed properties, each once
};

} // namespace hosts::linux_host

#pragma once

#include "process/SystemdHandles.h"

#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <vector>

namespace hosts::linux_host {

/// Gathers the names of changed properties, and signals them together at the end of the run-loop
/// turn, or later while messages are queued for the bus.
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
    int signal();
    int signalLater();

    sd_bus* bus_;
    process::EventSource endOfTurn_; ///< fires once the current turn is over
    process::EventSource retry_;     ///< fires when the bus has had time to read
    std::vector<std::string> names_; ///< of the changed properties, each once
};

} // namespace hosts::linux_host

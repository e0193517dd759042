#pragma once

#include "process/SystemdHandles.h"

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <vector>

namespace hosts::linux_host {

/// Gathers the names of changed properties, and signals them together: the first change at the end
/// of the run-loop turn, and those that follow at most every 50 ms. While messages are queued for
/// the bus, it gathers on. A second signal tells which root folders were added or removed.
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

    /// Notes which root folders are added or removed. The property is noted too.
    void noteRootFolders(const std::vector<std::string>& current,
                         const std::vector<std::string>& next);

private:
    void noteRootFolder(std::string_view path);
    void signal();
    void signalProperties();
    void signalRootFolders();

    sd_bus* bus_;
    process::EventSource timer_; ///< set to the earliest next signal, enabled while one is pending
    std::vector<std::string> names_; ///< of the changed properties, each once
    std::set<std::string> folders_;  ///< last components of added or removed paths
    std::size_t foldersSize_ = 0;    ///< bytes; above `longestNames`, `folders_` is empty
};

} // namespace hosts::linux_host

#pragma once

#include "hosts/linux/ObservedFinderSync.h"
#include "process/SystemdHandles.h"

#include <systemd/sd-bus.h>

namespace hosts::linux_host {

/// The interface findersync.Process1 of the object /FinderSync: what concerns the process rather
/// than the extension in it. The contract is hosts/linux/findersync.Process1.xml.
class ProcessService {
public:
    /// Neither argument is owned; both outlive the service. Quit raises SIGTERM, which
    /// `process::endOnSignals` handles.
    ProcessService(sd_bus* bus, ObservedFinderSync& extension) : bus_(bus), extension_(extension) {}
    ~ProcessService() { extension_.setLinkObserver(nullptr); }
    ProcessService(const ProcessService&) = delete;
    ProcessService& operator=(const ProcessService&) = delete;

    /// Puts the interface onto the bus. Gives 0, or a negative errno.
    [[nodiscard]] int publish();

private:
    sd_bus* bus_;
    ObservedFinderSync& extension_;
    process::Slot slot_;
};

} // namespace hosts::linux_host

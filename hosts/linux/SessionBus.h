#pragma once

#include "platform/linux/RunLoop.h"
#include "process/SystemdHandles.h"

#include <string>
#include <systemd/sd-bus.h>

namespace hosts::linux_host {

/// The process's connection to the session bus, which owns the extension's bus name.
class SessionBus {
public:
    /// Connects, takes the name and attaches the connection to the run loop.
    /// On failure, writes the cause and the remedy to standard error, and gives false.
    [[nodiscard]] bool open(const std::string& name, platform::linux_backend::RunLoop& runLoop);

    /// Whether the connection is open. When it is not, the session is over, which is logged to
    /// standard error. (sd-bus reports a lost connection by a message, which it cannot make when
    /// memory is short.)
    [[nodiscard]] bool isOpen() const;

    /// The connection, null before `open`. Owned by this object.
    [[nodiscard]] sd_bus* get() const { return bus_.get(); }

private:
    [[nodiscard]] bool takeName(const std::string& name);

    process::Bus bus_;
};

} // namespace hosts::linux_host

#pragma once

#include "platform/linux/RunLoop.h"

#include <string>
#include <systemd/sd-bus.h>

namespace findersync {

/// The process's connection to the session bus, under the extension's own name.
class SessionBus {
public:
    SessionBus() = default;
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    /// Connects, takes the name and has the run loop serve the connection.
    /// On failure, says on standard error what is wrong and what to do, and gives false.
    [[nodiscard]] bool open(const std::string& name, platform::linux_backend::RunLoop& runLoop);

    /// Whether the bus is there still; otherwise the session is over, which is said on standard
    /// error. The library tells of it by a message, for which there may be no memory.
    [[nodiscard]] bool isOpen() const;

    /// The connection, null before `open`. Owned by this object.
    [[nodiscard]] sd_bus* get() const { return bus_; }

private:
    [[nodiscard]] bool takeName(const std::string& name);

    sd_bus* bus_ = nullptr;
};

} // namespace findersync

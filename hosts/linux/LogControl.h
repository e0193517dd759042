#pragma once

#include "platform/linux/BufferedOutput.h"

#include <optional>
#include <string_view>
#include <systemd/sd-bus.h>

namespace hosts::linux_host {

/// Puts systemd's interface org.freedesktop.LogControl1 onto the bus, so that
/// `systemctl --user service-log-level` switches the log of the running process. The object stays
/// as long as the bus connection. Returns a negative errno on failure.
[[nodiscard]] int publishLogControl(sd_bus* bus);

/// The level of a name such as "warning", as systemd spells them.
[[nodiscard]] std::optional<platform::linux_backend::Level> logLevelNamed(std::string_view name);

} // namespace hosts::linux_host

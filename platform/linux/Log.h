#pragma once

#include "platform/linux/BufferedOutput.h"

#include <string_view>

namespace platform::linux_backend {

/// The most verbose level that is logged, `Debug` at first. NSLog's lines are `Debug`. Fatal errors
/// and warnings are always logged.
void setLogLevel(Level level);
[[nodiscard]] Level logLevel();

/// Buffers one line of the log.
void log(Level level, std::string_view text);

} // namespace platform::linux_backend

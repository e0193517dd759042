#pragma once

// The limits that every plug-in keeps, whatever its toolkit.

#include <chrono>

namespace file_managers {

/// How long a menu waits for the extension's entries.
inline constexpr std::chrono::milliseconds menuTimeout(100);

/// How long no menu asks an extension that let one time out.
inline constexpr std::chrono::milliseconds menuBackoff(5000);

/// How soon after a start the extension is started again, should it have ended in between.
inline constexpr std::chrono::milliseconds startBackoff(1000);

/// Badges asked for in one request: a folder of any size keeps neither side busy for long.
inline constexpr int batchSize = 1000;

// The extension stays below these. Another program can own its name on the bus and send more, which
// the file manager is not to spend its time on.
inline constexpr int maxMenuItems = 16;
inline constexpr int maxDirectories = 16;
inline constexpr int maxTextLength = 1024; ///< in code units of the toolkit's strings

} // namespace file_managers

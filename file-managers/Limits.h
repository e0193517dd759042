#pragma once

// The limits that every plug-in keeps, whatever its toolkit.

#include <chrono>

namespace file_managers {

/// How long a menu waits for entries, those of all products together.
inline constexpr std::chrono::milliseconds menuTimeout(100);

/// How long no menu asks an extension that let one time out.
inline constexpr std::chrono::milliseconds menuBackoff(5000);

/// How long a file manager is left alone between two notices of the same kind, and an extension
/// after it was asked because root folders have changed. The first is not delayed.
inline constexpr std::chrono::milliseconds noticeInterval(250);

// Badges asked for in one request: a folder of any size keeps neither side busy for long, and no
// message becomes so large that it is refused.
inline constexpr int batchSize = 1000;
inline constexpr int maxBatchSize = 1 << 20; ///< of the URLs, in bytes

// Products stay below these. Any program can own such names on the bus and send more, which the
// file manager is not to spend its time on.
inline constexpr int maxProducts = 32;
inline constexpr int maxMenuItems = 16;      ///< of one product
inline constexpr int maxMenuSize = 16 << 20; ///< of one product, in bytes of a message
inline constexpr int maxDirectories = 16;
inline constexpr int maxRootFoldersSize = 16 << 20; ///< in bytes of a message
inline constexpr int maxFolderNames = 1 << 16;
inline constexpr int maxChangedNamesSize = 64 << 10; ///< in bytes of a message
/// In code units of the toolkit's strings. A title that is longer is cut.
inline constexpr int maxTextLength = 1024;

} // namespace file_managers

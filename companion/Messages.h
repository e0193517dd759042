#pragma once

#include "finder_sync_companion/Companion.h"

#include <string>
#include <string_view>

namespace finder_sync {

/// Whether the text is valid UTF-8 throughout.
[[nodiscard]] bool isUTF8(std::string_view text);

// The messages to the extension, each with its line feed.

[[nodiscard]] std::string addFolder(std::string_view path);
[[nodiscard]] std::string deleteFolder(std::string_view path);
[[nodiscard]] std::string setLocale(const Titles& titles);
[[nodiscard]] std::string setMenuUsage(bool displaysBackup);

/// Cuts titles whose message is longer than a block, each to a third of the room.
void fitIntoBlock(Titles& titles);

} // namespace finder_sync

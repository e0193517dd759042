#pragma once

#include "finder_sync_companion/Companion.h"

#include <optional>
#include <string>
#include <string_view>

namespace finder_sync {

/// Reads the text of one report, with its paths as they stand. Returns what is wrong with it, none
/// for nothing.
[[nodiscard]] std::optional<std::string> parseReport(std::string_view text, Report& report);

} // namespace finder_sync

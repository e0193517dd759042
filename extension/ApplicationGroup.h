#pragma once

#include <string_view>

namespace findersync {

/// The application-group identifier that the extension shares with its companion application: the
/// name of the settings suite, and the stem of every branded name (bus name, bundle identifier).
/// Set when the project is configured: `cmake -DFINDER_SYNC_GROUP=com.example.product`.
inline constexpr std::string_view applicationGroup = FINDER_SYNC_GROUP;

} // namespace findersync

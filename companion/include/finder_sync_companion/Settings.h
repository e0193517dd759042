#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>

namespace finder_sync {

/// Settings that the companion shares with the extension, by their keys.
using Settings = std::map<std::string, std::variant<std::int64_t, std::string>>;

/// Path of the settings file of an application group on Linux, empty when neither $XDG_CONFIG_HOME
/// nor $HOME names a directory.
[[nodiscard]] std::string settingsFile(const std::string& group);

/// What is wrong with settings, empty for nothing: an unknown key, a value of another type, an
/// impossible port, or a text that is not UTF-8. Most of it would end the extension.
[[nodiscard]] std::string problemOf(const Settings& settings);

/// Merges settings into the file, whose other keys stay. The file is replaced in one step, so that
/// the extension never reads half of it, and only the user can read it. Returns false on failure,
/// and the file is untouched, and `failure` says what is wrong.
[[nodiscard]] bool writeSettings(const std::string& group, const Settings& settings,
                                 std::string& failure);

} // namespace finder_sync

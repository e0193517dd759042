#pragma once

#include <boost/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace companion {

/// Understands KEY=VALUE and adds it to the settings. Gives false for an unknown key and for a
/// value that is not of the key's type; `failure` then says so in words.
[[nodiscard]] bool addSetting(boost::json::object& settings, std::string_view keyAndValue,
                              std::string& failure);

/// Merges the settings into the file that is shared with the extension: other keys stay as they
/// are. The file is replaced in one step and is for the user's eyes only. Gives its path; on
/// failure none, and the file is untouched, and `failure` says what is wrong.
[[nodiscard]] std::optional<std::string> mergeIntoSettingsFile(const boost::json::object& settings,
                                                               std::string& failure);

} // namespace companion

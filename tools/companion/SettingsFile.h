#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace companion {

/// Checks that each setting is of the form KEY=VALUE, with a known key and a value of its type.
/// Returns what is wrong with the first that is not, empty when there is none.
[[nodiscard]] std::string problemOfSettings(const std::vector<std::string>& settings);

/// Merges settings, which have no problem, into the file that is shared with the extension, and the
/// port unless they name one. Other keys of the file are kept. The file is replaced in one step and
/// gets mode 0600. Returns its path; on failure none, and the file is untouched, and `failure` says
/// what is wrong.
[[nodiscard]] std::optional<std::string>
mergeIntoSettingsFile(const std::vector<std::string>& settings, std::uint16_t port,
                      std::string& failure);

} // namespace companion

#pragma once

// File URLs as text. Depends only on the standard library, so that the tools can use it too.

#include <optional>
#include <string>
#include <string_view>

namespace platform::text {

/// The file URL of an absolute path: "file://" and the path, in which every byte that is not
/// allowed in the path of a URL is percent-encoded.
[[nodiscard]] std::string fileURLFromPath(std::string_view absolutePath);

/// The path that a file URL names, decoded and without a trailing "/" (except the root).
///
/// The URL has the scheme "file", an empty host or "localhost", and an absolute path, and neither
/// query nor fragment. Its path contains no NUL; whether it is valid UTF-8 is not checked. Returns
/// nullopt for anything else; `failure` then holds the reason as text.
[[nodiscard]] std::optional<std::string> pathFromFileURL(std::string_view url,
                                                         std::string& failure);

} // namespace platform::text

#pragma once

// File URLs as text. Needs nothing but the standard library, so that tools which only speak of
// files to the extension can use it too.

#include <optional>
#include <string>
#include <string_view>

namespace platform::text {

/// The file URL of an absolute path: "file://" and the path, with every byte percent-encoded that
/// may not stand in the path of a URL.
[[nodiscard]] std::string fileURLFromPath(std::string_view absolutePath);

/// The path that a file URL names, decoded and without a trailing "/" (except the root).
///
/// The URL has the scheme "file", an empty host or "localhost", and an absolute path, and neither
/// query nor fragment. Its path holds no NUL; whether it is valid UTF-8 is not looked at. Gives
/// none for anything else; `failure` then says in words what is wrong.
[[nodiscard]] std::optional<std::string> pathFromFileURL(std::string_view url,
                                                         std::string& failure);

} // namespace platform::text

#pragma once

#include "platform/Foundation.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::text {

/// Parses one JSON text whose top level is an object or an array, nested at most 512 levels deep.
/// Strict: text after the value, comments, NaN, lone surrogates, raw control characters, invalid
/// UTF-8, a byte-order mark and numbers that overflow a double are errors, but integers may have
/// any length. Of equal keys the last one wins.
/// Gives none on failure; `failure` then says in words what is wrong.
[[nodiscard]] std::optional<Object> parseJSON(std::string_view text, std::string& failure);

/// Whether a value is an array or a dictionary that holds only what JSON knows, however deep.
[[nodiscard]] bool isJSONContainer(const Object& value);

/// A value that JSON knows, as text: compact, or on lines of their own with two spaces for each
/// level. Characters outside ASCII stand for themselves.
[[nodiscard]] std::string JSONText(const Object& value, bool prettyPrinted);

} // namespace platform::text

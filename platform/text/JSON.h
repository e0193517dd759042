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
/// Returns nullopt on failure; `failure` then holds the reason as text.
[[nodiscard]] std::optional<Object> parseJSON(std::string_view text, std::string& failure);

/// Whether a value is an array or a dictionary that contains only JSON types, at any depth.
[[nodiscard]] bool isJSONContainer(const Object& value);

/// Writes such a value as text: compact, or one element per line, indented by two spaces per level.
/// Characters outside ASCII are not escaped.
[[nodiscard]] std::string JSONText(const Object& value, bool prettyPrinted);

} // namespace platform::text

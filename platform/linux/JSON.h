#pragma once

#include "platform/Foundation.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::linux_backend {

/// Parses one JSON text whose top level is an object or an array, nested at most 512 levels deep.
/// Strict: text after the value, comments, NaN, lone surrogates, raw control characters, invalid
/// UTF-8, a byte-order mark and numbers that overflow a double are errors, but integers may have
/// any length. Of equal keys the last one wins.
/// Gives none on failure; `failure` then says in words what is wrong.
[[nodiscard]] std::optional<Object> parseJSON(std::string_view text, std::string& failure);

} // namespace platform::linux_backend

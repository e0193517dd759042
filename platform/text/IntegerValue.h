#pragma once

#include "platform/Foundation.h"

#include <cstdint>

namespace platform::text {

/// Converts a setting's value to an integer. A number is truncated towards zero and saturates at 64
/// bits; a string counts when the whole of it is a decimal integer with an optional minus sign; a
/// Boolean is 1 or 0. Everything else is 0.
[[nodiscard]] std::int64_t integerValue(const Object& object);

} // namespace platform::text

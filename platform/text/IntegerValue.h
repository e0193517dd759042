#pragma once

#include "platform/Foundation.h"

#include <cstdint>

namespace platform::text {

/// A setting's value as an integer. A number is truncated towards zero and stops at the limits of
/// 64 bits; a string counts when the whole of it is a decimal integer with an optional minus sign;
/// a Boolean is 1 or 0. Everything else is 0.
[[nodiscard]] std::int64_t integerValue(const Object& object);

} // namespace platform::text

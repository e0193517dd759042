#pragma once

#include "platform/macos/Reference.h"

#include <string>
#include <string_view>

namespace platform::macos {

/// A text as an object of the platform. Nil when it is not valid UTF-8.
[[nodiscard]] Reference<::NSString*> stringObject(std::string_view text);

/// The UTF-8 of a string object, empty for nil. Half of a surrogate pair, which UTF-8 cannot hold,
/// becomes a replacement character.
[[nodiscard]] std::string utf8Text(::NSString* string);

/// Whether UTF-8 can hold a string object.
[[nodiscard]] bool isUTF8Encodable(::NSString* string);

} // namespace platform::macos

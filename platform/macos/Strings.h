#pragma once

#include "platform/macos/Reference.h"

#include <string>
#include <string_view>

namespace platform::macos {

/// A text as an NSString; nil when it is not valid UTF-8.
[[nodiscard]] Reference<::NSString*> stringObject(std::string_view text);

/// The UTF-8 of an NSString, empty for nil. A lone surrogate becomes a replacement character.
[[nodiscard]] std::string utf8Text(::NSString* string);

/// Whether an NSString can be encoded as UTF-8: it has no lone surrogate.
[[nodiscard]] bool isUTF8Encodable(::NSString* string);

} // namespace platform::macos

#pragma once

#include "platform/Foundation.h"
#include "platform/macos/Reference.h"

namespace platform::macos {

/// What a property list or a JSON text holds, as a value. What has no counterpart becomes opaque
/// bytes, which are neither a string nor anything that JSON knows: a date, a text that UTF-8 cannot
/// hold, a dictionary whose keys are not all strings. Nil becomes null.
[[nodiscard]] Object valueOfObject(id object);

/// A dictionary object's entries; the empty dictionary when it has other keys than strings, or for
/// another object.
[[nodiscard]] NSDictionary entriesOf(id dictionary);

/// A value as an object of the platform. Never nil.
[[nodiscard]] Reference<id> objectOfValue(const Object& value);

} // namespace platform::macos

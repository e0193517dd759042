#pragma once

#include "platform/Foundation.h"
#include "platform/macos/Reference.h"

namespace platform::macos {

/// Converts an object of a property list or a JSON text to a value. An object without a counterpart
/// (a date, a text with a lone surrogate, a dictionary whose keys are not all strings) becomes raw
/// bytes, which are neither a string nor a JSON type. Nil becomes null.
[[nodiscard]] Object valueOfObject(id object);

/// The entries of an NSDictionary; empty when a key is not a string, or for any other object.
[[nodiscard]] NSDictionary entriesOf(id dictionary);

/// Converts a value to a Foundation object. Never nil.
[[nodiscard]] Reference<id> objectOfValue(const Object& value);

} // namespace platform::macos

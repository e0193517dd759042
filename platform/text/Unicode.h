#pragma once

// Unicode operations on UTF-8, by ICU. Pure functions.

#include <string>
#include <string_view>

namespace platform::text {

/// Whether the bytes are valid UTF-8: no surrogates, no overlong forms, nothing above U+10FFFF.
[[nodiscard]] bool isUTF8(std::string_view text);

/// Whether two texts are canonically equivalent. Fast for equal bytes and for ASCII.
[[nodiscard]] bool areCanonicallyEquivalent(std::string_view one, std::string_view other);

/// Whether `text` contains a sequence that is canonically equivalent to `searched` and ends at a
/// grapheme boundary. False for an empty `searched`. Fast for ASCII.
[[nodiscard]] bool contains(std::string_view text, std::string_view searched);

/// Replaces each noncharacter (such as U+FFFE) by U+FFFD. Noncharacters are valid UTF-8, but some
/// libraries reject them.
[[nodiscard]] std::string withoutNoncharacters(std::string_view text);

} // namespace platform::text

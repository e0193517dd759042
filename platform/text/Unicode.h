#pragma once

// What needs to know Unicode. Pure functions, with ICU behind them.

#include <string>
#include <string_view>

namespace platform::text {

/// Whether the bytes are valid UTF-8: no surrogates, no overlong forms, nothing above U+10FFFF.
[[nodiscard]] bool isUTF8(std::string_view text);

/// Whether two texts in UTF-8 are canonically equivalent. Fast for equal bytes and for ASCII.
[[nodiscard]] bool areCanonicallyEquivalent(std::string_view one, std::string_view other);

/// Whether a text holds another one, or a canonically equivalent sequence, that does not end inside
/// a combined character. The empty text is held by none. Fast for ASCII.
[[nodiscard]] bool contains(std::string_view text, std::string_view searched);

/// The text with U+FFFD in place of each noncharacter (U+FFFE and the like). They are valid UTF-8,
/// but not every library lets them pass.
[[nodiscard]] std::string withoutNoncharacters(std::string_view text);

} // namespace platform::text

#pragma once

#include <string>
#include <string_view>

namespace console {

/// Whether the text is valid UTF-8 throughout.
[[nodiscard]] bool isUTF8(std::string_view text);

/// The text for people to read: control characters, and bytes that are no UTF-8, become visible
/// escapes, so that no text can move the cursor or pose as a second line.
[[nodiscard]] std::string printable(std::string_view text);

/// Whether output to a descriptor is to be colored: on a terminal that can, unless the user has
/// refused.
[[nodiscard]] bool wantsColor(int descriptor);

} // namespace console

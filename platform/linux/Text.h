#pragma once

#include <string_view>

namespace platform::linux_backend {

/// Whether the bytes are valid UTF-8: no surrogates, no overlong forms, nothing above U+10FFFF.
[[nodiscard]] bool isUTF8(std::string_view text);

} // namespace platform::linux_backend

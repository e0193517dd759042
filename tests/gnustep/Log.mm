// What would be readable in the unified log, on standard error.

#include <cstdio>
#include <cstring>
#include <os/log.h>

struct os_log_s {};
os_log_s _os_log_default;

/// For a format that ends with a text, which clang encodes as two bytes of summary, its flags, its
/// size, and its address.
void _os_log_impl(void*, os_log_t, uint8_t, const char* format, uint8_t* arguments, uint32_t) {
    constexpr uint8_t isPublic = 2;
    const char* text = "<private>";
    if ((arguments[2] & isPublic) != 0)
        std::memcpy(&text, arguments + 4, sizeof text);
    const auto length = static_cast<int>(std::strchr(format, '%') - format);
    (void)std::fprintf(stderr, "log: %.*s%s\n", length, format, text);
}

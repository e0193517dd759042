#pragma once

// The part of the unified log that the extension uses. The compiler encodes the arguments.

#include <stdint.h>

using os_log_t = struct os_log_s*;

extern "C" {

extern struct os_log_s _os_log_default;
void _os_log_impl(void* caller, os_log_t log, uint8_t type, const char* format, uint8_t* arguments,
                  uint32_t size) __attribute__((availability(macos, introduced = 10.12)));

} // extern "C"

#define OS_LOG_DEFAULT (&_os_log_default)
#define os_log_error(log, format, ...)                                                             \
    do {                                                                                           \
        uint8_t encoded[__builtin_os_log_format_buffer_size(format, __VA_ARGS__)];                 \
        __builtin_os_log_format(encoded, format, __VA_ARGS__);                                     \
        _os_log_impl(nullptr, log, 0x10, format, encoded, sizeof encoded);                         \
    } while (false)

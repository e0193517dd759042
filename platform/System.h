#pragma once

// What the extension takes from the C library and from the process it runs in. The general rules
// of platform/Foundation.h hold here too.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// Writes a text, the value and a line feed to standard output. Lines stay in order, and none is
/// lost while standard output has a reader, not even in a fatal error. A back end may buffer the
/// lines of one event but must write them before the process waits.
void print(std::string_view text, std::string_view value = {});

/// `malloc`: a buffer of `size` bytes, which may be 0; null when memory runs out. Owned by the
/// caller.
[[nodiscard]] void* malloc(std::size_t size);

/// `listxattr` without options: follows symbolic links and hides the compression attribute where
/// there is one. Without a buffer and with size 0, returns the byte count of the item's attribute
/// names, each terminated by NUL. With a buffer of `size` bytes, copies the names into it and
/// returns the number of bytes written. On failure, returns -1 and sets the error number.
/// The path ends at its first NUL.
[[nodiscard]] std::int64_t listxattr(const std::string& path, char* buffer, std::size_t size);

/// `errno`: the calling thread's last system error number.
[[nodiscard]] int errorNumber();

/// `strerror`: the platform's text for an error number, NUL-terminated, not necessarily UTF-8.
/// Valid until the next call.
[[nodiscard]] const char* strerror(int number);

/// Writes the buffered output and `reason`, as one line on standard error, and ends the process
/// with SIGABRT.
[[noreturn]] void fatalError(std::string_view reason);

} // namespace platform

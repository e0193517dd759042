#pragma once

// What the extension takes from the C library and from the process it runs in. The general rules
// of platform/Foundation.h hold here too.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// Writes a text, a value directly after it, and one line feed to standard output. Lines arrive in
/// order and none is lost while anybody reads them, a fatal error included; a back end may gather
/// the lines of one event, but leaves none unwritten while the process waits.
void print(std::string_view text, std::string_view value = {});

/// `malloc`: a buffer of `size` bytes, 0 included; null when there is no memory. Owned by the
/// caller.
[[nodiscard]] void* malloc(std::size_t size);

/// `listxattr` with no options set: symbolic links are followed, and the compression attribute
/// stays hidden where there is one. Without a buffer and with a size of 0, gives the byte count of
/// the item's attribute names, each ended by a NUL. With a buffer of `size` bytes, fills it with
/// the names and gives the number of bytes written. Gives -1 and sets the error number on failure.
/// The path counts up to its first NUL.
[[nodiscard]] std::int64_t listxattr(const std::string& path, char* buffer, std::size_t size);

/// `errno`: the calling thread's last system error number.
[[nodiscard]] int errorNumber();

/// `strerror`: the platform's text for an error number, NUL-terminated, not necessarily UTF-8.
/// Valid until the next call.
[[nodiscard]] const char* strerror(int number);

/// Ends the process at once, by SIGABRT, after what was printed has been written out and `reason`
/// stands on standard error as one line.
[[noreturn]] void fatalError(std::string_view reason);

} // namespace platform

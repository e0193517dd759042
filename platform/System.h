#pragma once

// What the extension takes from the C library and from the process it runs in. The general rules
// of platform/Foundation.h hold here too.

#include <cstddef>
#include <string_view>

namespace platform {

/// Writes a text and one line feed to standard output. Lines arrive in order and none is lost
/// while anybody reads them, a fatal error included; a back end may gather the lines of one event,
/// but leaves none unwritten while the process waits.
void print(std::string_view line);

/// `malloc`: a buffer of `size` bytes, 0 included; null when there is no memory. Owned by the
/// caller.
[[nodiscard]] void* malloc(std::size_t size);

/// Ends the process at once, by SIGABRT, after what was printed has been written out and `reason`
/// stands on standard error as one line.
[[noreturn]] void fatalError(std::string_view reason);

} // namespace platform

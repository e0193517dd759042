#pragma once

#include <string_view>

namespace process {

/// Makes sure that descriptors 0, 1 and 2 are open, so that no socket can end up under a number
/// that is read as input or written to as output. Call it before anything is opened.
void secureStandardDescriptors();

/// Writes all of it, waiting for the reader where need be. Gives 0, or the errno that stopped it:
/// EPIPE when nobody reads any more (the caller has SIGPIPE ignored).
[[nodiscard]] int writeFully(int descriptor, std::string_view text);

} // namespace process

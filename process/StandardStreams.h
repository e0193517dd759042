#pragma once

#include <string_view>

namespace process {

/// Opens /dev/null for each of the descriptors 0, 1 and 2 that is closed, so that no socket gets
/// one of these numbers and is used as a standard stream. Call it before opening anything else.
void secureStandardDescriptors();

/// Writes the whole text and blocks while the reader is slow. Returns 0 or the errno that stopped
/// it, such as EPIPE when the reader is gone. The caller ignores SIGPIPE.
[[nodiscard]] int writeFully(int descriptor, std::string_view text);

} // namespace process

#pragma once

#include <string_view>

namespace platform::text {

/// Whether an absolute path is that of a folder or of something in it. Only the texts are compared:
/// empty, "." and ".." components are resolved without reading the file system, and names are
/// compared by canonical equivalence.
[[nodiscard]] bool isInFolder(std::string_view path, std::string_view folder);

} // namespace platform::text

#pragma once

#include <string>
#include <string_view>

namespace platform::text {

/// An absolute path without empty, "." and ".." components. Only the text is changed: the file
/// system is not read, so symbolic links stay.
[[nodiscard]] std::string resolvedPath(std::string_view path);

/// Whether an absolute path is that of a folder or of something in it. Only the texts are compared:
/// both paths are resolved as above, and their names are compared by canonical equivalence.
[[nodiscard]] bool isInFolder(std::string_view path, std::string_view folder);

} // namespace platform::text

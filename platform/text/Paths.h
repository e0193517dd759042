#pragma once

#include <string_view>

namespace platform::text {

/// Whether an absolute path is a folder's or lies below it, by their texts: empty, "." and ".."
/// components are resolved without a look at the file system, and names are compared by canonical
/// equivalence.
[[nodiscard]] bool isInFolder(std::string_view path, std::string_view folder);

} // namespace platform::text

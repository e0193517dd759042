#pragma once

#include <string>
#include <string_view>

// Absolute paths as texts: the file system is not read.

namespace finder_sync {

/// Whether no component is empty, "." or "..", as file managers spell a path.
[[nodiscard]] bool isNormal(std::string_view path);

/// Resolves such components.
void normalize(std::string& path);

/// Whether a normal path is that of a folder or of something in it. False if one of both is empty.
[[nodiscard]] bool isAtOrBelow(std::string_view path, std::string_view folder);

} // namespace finder_sync

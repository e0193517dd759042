#include "companion/Paths.h"

#include <algorithm>

namespace finder_sync {

bool isNormal(std::string_view path) {
    std::string normal(path);
    normalize(normal);
    return normal == path;
}

void normalize(std::string& path) {
    const auto iteratorAt = [&path](std::size_t index) {
        return path.begin() + static_cast<std::ptrdiff_t>(index);
    };
    std::size_t kept = 0;
    for (std::size_t start = 0, end = 0; start < path.size(); start = end) {
        end = std::min(path.find('/', start + 1), path.size());
        const std::string_view name = std::string_view(path).substr(start + 1, end - start - 1);
        if (name == "..") {
            kept = kept == 0 ? 0 : path.rfind('/', kept - 1);
        } else if (!name.empty() && name != ".") {
            std::copy(iteratorAt(start), iteratorAt(end), iteratorAt(kept));
            kept += end - start;
        }
    }
    path.resize(std::max(kept, std::size_t{1}));
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    return !folder.empty() && path.starts_with(folder) &&
           (folder == "/" || path.size() == folder.size() || path[folder.size()] == '/');
}

} // namespace finder_sync

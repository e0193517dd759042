#include "platform/text/Paths.h"

#include "platform/text/Splitting.h"
#include "platform/text/Unicode.h"

#include <algorithm>
#include <vector>

namespace platform::text {

namespace {

/// The components of an absolute path, after resolving empty, "." and ".." ones.
std::vector<std::string_view> resolvedComponents(std::string_view path) {
    std::vector<std::string_view> resolved;
    for (const std::string_view component : split(path, "/")) {
        if (component == ".." && !resolved.empty())
            resolved.pop_back();
        else if (!component.empty() && component != "." && component != "..")
            resolved.push_back(component);
    }
    return resolved;
}

} // namespace

std::string resolvedPath(std::string_view path) {
    std::string resolved;
    for (const std::string_view component : resolvedComponents(path))
        resolved.append("/").append(component);
    return resolved.empty() ? "/" : resolved;
}

bool isInFolder(std::string_view path, std::string_view folder) {
    const std::vector<std::string_view> item = resolvedComponents(path);
    const std::vector<std::string_view> parent = resolvedComponents(folder);
    return item.size() >= parent.size() &&
           std::equal(parent.begin(), parent.end(), item.begin(), areCanonicallyEquivalent);
}

} // namespace platform::text

// Images are SVG files in the bundle.

#include "platform/linux/Image.h"

#include "platform/Foundation.h"

#include <functional>
#include <map>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

bool isReadableFile(const std::string& path) {
    struct stat status{};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.c_str(), R_OK) == 0;
}

} // namespace

std::shared_ptr<const NSImage> imageNamed(std::string_view name) {
    if (name.empty() || name.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos)
        return nullptr;
    // Cached: each menu loads its images again, and finding their files would dominate its time.
    static std::map<std::string, std::shared_ptr<const NSImage>, std::less<>> known;
    if (const auto image = known.find(name); image != known.end())
        return image->second;
    const std::string path = mainBundlePath() + "/" + std::string(name) + ".svg";
    if (!isReadableFile(path))
        return nullptr;
    auto image = std::make_shared<linux_backend::ImageFile>(std::string(name), path);
    return known.emplace(name, std::move(image)).first->second;
}

} // namespace platform

// The extension's bundle is the folder share/finder-sync beside the folder of the program. That
// holds in the build as well as under an install prefix.

#include "platform/linux/Bundle.h"

#include "platform/Foundation.h"
#include "platform/System.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <functional>
#include <map>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

// std::filesystem would be at home here, but what it brings into memory is more than all the rest
// of the program's start-up.

std::string_view parentFolder(std::string_view path) {
    return path.substr(0, path.rfind('/'));
}

std::string bundlePath() {
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length < 0)
        fatalError(std::string("/proc/self/exe cannot be read: ") + std::strerror(errno));
    const std::string_view program(path, static_cast<std::size_t>(length));
    return std::string(parentFolder(parentFolder(program))) + "/share/finder-sync";
}

bool isReadableFile(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.c_str(), R_OK) == 0;
}

} // namespace

std::string mainBundlePath() {
    static const std::string path = bundlePath();
    return path;
}

std::shared_ptr<const NSImage> imageNamed(std::string_view name) {
    if (name.empty() || name.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos)
        return nullptr;
    // A menu asks for its images each time. Looking for their files would take longer than the
    // rest.
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

// The extension's bundle is the folder share/finder-sync beside the folder of the program. That
// holds in the build as well as under an install prefix.

#include "platform/Foundation.h"
#include "platform/System.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <string_view>
#include <unistd.h>

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

} // namespace

std::string mainBundlePath() {
    static const std::string path = bundlePath();
    return path;
}

} // namespace platform

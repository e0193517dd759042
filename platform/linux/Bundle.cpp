// The extension's bundle is ../share/<name of the product>, relative to the program's folder, in
// the build and under an install prefix alike.

#include "Names.h"
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

// No std::filesystem: loading it would take more memory than the rest of the start-up.

std::string_view parentFolder(std::string_view path) {
    return path.substr(0, path.rfind('/'));
}

std::string bundlePath() {
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length < 0)
        fatalError(std::string("/proc/self/exe cannot be read: ") + std::strerror(errno));
    const std::string_view program(path, static_cast<std::size_t>(length));
    return std::string(parentFolder(parentFolder(program))) + "/share/" + findersync::productName;
}

} // namespace

std::string mainBundlePath() {
    static const std::string path = bundlePath();
    return path;
}

} // namespace platform

// The extension's bundle is the folder share/finder-sync beside the folder of the program. That
// holds in the build as well as under an install prefix.

#include "platform/linux/Bundle.h"

#include "platform/Foundation.h"

#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace platform {

namespace fs = std::filesystem;

std::string mainBundlePath() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    return (program.parent_path().parent_path() / "share" / "finder-sync").string();
}

std::shared_ptr<const NSImage> imageNamed(std::string_view name) {
    if (name.empty() || name.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos)
        return nullptr;
    const std::string path = mainBundlePath() + "/" + std::string(name) + ".svg";
    std::error_code error;
    if (!fs::is_regular_file(path, error) || ::access(path.c_str(), R_OK) != 0)
        return nullptr;
    return std::make_shared<linux_backend::ImageFile>(std::string(name), path);
}

} // namespace platform

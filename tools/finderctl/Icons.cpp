// Whether the icon theme has the icons of a product's badges.

#include "tools/finderctl/Doctor.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string_view>

namespace finderctl {

namespace {

std::string variable(const char* name, const std::string& otherwise) {
    const char* const value = std::getenv(name);
    return value == nullptr || *value == '\0' ? otherwise : value;
}

/// The folders that hold data files, the user's own first.
std::vector<std::string> dataFolders() {
    std::vector<std::string> folders = {
        variable("XDG_DATA_HOME", variable("HOME", "") + "/.local/share")};
    std::istringstream list(variable("XDG_DATA_DIRS", "/usr/local/share:/usr/share"));
    for (std::string folder; std::getline(list, folder, ':');)
        folders.push_back(folder);
    return folders;
}

/// Whether the theme that every other one falls back to has an emblem of that name, in any size.
bool hasEmblem(const std::string& folder, std::string_view prefix) {
    std::error_code error;
    for (const auto& size : std::filesystem::directory_iterator(folder + "/icons/hicolor", error)) {
        for (const auto& icon :
             std::filesystem::directory_iterator(size.path() / "emblems", error)) {
            if (icon.path().filename().string().starts_with(prefix))
                return true;
        }
    }
    return false;
}

} // namespace

Finding examineIcons(const std::string& busName) {
    const std::string prefix =
        "emblem-" + busName.substr(0, busName.rfind('.') + 1); // an identifier follows
    const auto folders = dataFolders();
    if (std::ranges::any_of(folders, [&](const auto& folder) { return hasEmblem(folder, prefix); }))
        return {"icon", "the icon theme has " + prefix + "*", ""};
    return {"icon", "the icon theme has no " + prefix + "*",
            "install its package; from another prefix, have share/ in XDG_DATA_DIRS when you log "
            "in"};
}

} // namespace finderctl

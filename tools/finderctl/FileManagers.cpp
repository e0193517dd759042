// Whether the file managers that run have loaded their plug-ins.

#include "tools/finderctl/Doctor.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace finderctl {

namespace {

/// Part of the file name of every plug-in, and of its name in a list of disabled ones.
constexpr std::string_view plugin = "finder-sync";

struct FileManager {
    std::string_view program;
    const char* disabledPlugins; ///< The command that lists them, null where there is no list.
};

constexpr FileManager fileManagers[] = {
    {"caja", "gsettings get org.mate.caja.extensions disabled-extensions 2>/dev/null"},
    {"nemo", "gsettings get org.nemo.plugins disabled-extensions 2>/dev/null"},
    {"nautilus", nullptr},
    {"thunar", nullptr},
    {"dolphin", nullptr},
};

/// The file manager that a process of this user runs, or null.
const FileManager* fileManagerOf(const std::filesystem::path& process) {
    struct stat status{};
    std::error_code error;
    std::string program = std::filesystem::read_symlink(process / "exe", error).filename();
    if (error || ::stat(process.c_str(), &status) != 0 || status.st_uid != ::getuid())
        return nullptr;
    program = program.substr(0, program.find(' ')); // " (deleted)", after an upgrade
    std::ranges::transform(program, program.begin(),
                           [](unsigned char c) { return std::tolower(c); });
    const auto* const found = std::ranges::find(fileManagers, program, &FileManager::program);
    return found == std::end(fileManagers) ? nullptr : found;
}

bool hasLoadedPlugin(const std::filesystem::path& process) {
    std::ifstream maps(process / "maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(plugin, line.rfind('/')) != std::string::npos)
            return true;
    }
    return false;
}

/// Whether the user has switched the plug-in off, in the file manager's preferences.
bool isDisabled(const FileManager& fileManager) {
    if (fileManager.disabledPlugins == nullptr)
        return false;
    // NOLINTNEXTLINE(cert-env33-c): the commands are constants
    const std::unique_ptr<FILE, int (*)(FILE*)> list(::popen(fileManager.disabledPlugins, "re"),
                                                     ::pclose);
    std::string text;
    for (int c = 0; list && (c = std::fgetc(list.get())) != EOF;)
        text += static_cast<char>(c);
    return text.find(plugin) != std::string::npos;
}

Finding examineFileManager(const FileManager& fileManager, const std::filesystem::path& process) {
    const std::string who =
        std::string(fileManager.program) + " (process " + process.filename().string() + ")";
    if (isDisabled(fileManager))
        return {"plug-in", "it is switched off in " + who,
                "switch it on among the extensions in its preferences, then end and start it"};
    if (hasLoadedPlugin(process))
        return {"plug-in", who + " has loaded it", ""};
    return {"plug-in", who + " has not loaded it",
            "end and start it; if that does not help, install the plug-in's package"};
}

} // namespace

std::vector<Finding> examineFileManagers() {
    std::vector<Finding> findings;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        if (const FileManager* const fileManager = fileManagerOf(entry.path()))
            findings.push_back(examineFileManager(*fileManager, entry.path()));
    }
    if (findings.empty())
        findings.push_back({"plug-in", "no file manager is running", ""});
    return findings;
}

} // namespace finderctl

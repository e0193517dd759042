#include "bench/Caja.h"

#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace findersync::bench {

namespace fs = std::filesystem;

namespace {

using std::chrono::milliseconds;

constexpr milliseconds glance{50};
constexpr milliseconds rest{600};
constexpr std::chrono::seconds patience{60};
/// What does not count as going on: a timer that finds nothing to do.
constexpr std::chrono::microseconds idling{500};

/// Home, settings, caches and the emblem; gives the variables that make a program use them.
std::vector<std::string> surroundings(const Session& session) {
    const std::string home = session.privateFile("home");
    const fs::path emblems = fs::path(home) / "share/icons/hicolor/scalable/emblems";
    fs::create_directories(emblems);
    fs::create_directories(fs::path(home) / "run");
    fs::permissions(fs::path(home) / "run", fs::perms::owner_all);
    std::ofstream emblem(emblems / "emblem-" FINDER_SYNC_GROUP ".FolderIco.svg");
    emblem << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 48 48">)"
              R"(<rect width="48" height="48" fill="#ff00ff"/></svg>)"
           << '\n';
    if (!emblem.flush())
        throw std::runtime_error("the emblem cannot be written");
    return {"HOME=" + home,
            "XDG_CONFIG_HOME=" + home + "/config",
            "XDG_DATA_HOME=" + home + "/share",
            "XDG_CACHE_HOME=" + home + "/cache",
            "XDG_RUNTIME_DIR=" + home + "/run",
            "XDG_DATA_DIRS=/usr/local/share:/usr/share",
            "GDK_BACKEND=x11",
            "GSETTINGS_BACKEND=memory",
            "GIO_USE_VFS=local",
            "NO_AT_BRIDGE=1"};
}

std::vector<std::string> joined(std::vector<std::string> first,
                                const std::vector<std::string>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

} // namespace

CajaPlugins cajaPlugins(const Session& session) {
    const std::string none = session.privateFile("no-plugins");
    fs::create_directories(none);
    return {.ours = session.benchFile("../lib/caja/extensions-2.0"),
            .empty = session.benchFile("empty-plugin"),
            .none = none};
}

Caja::Caja(const Session& session, const Screen& screen, const std::string& plugins,
           const fs::path& folder, std::vector<std::string> environment)
    : process_({"/usr/bin/caja", "--no-desktop", "--browser", folder},
               {.output = screen.log(), .error = screen.log()},
               joined(joined(surroundings(session),
                             {"DISPLAY=" + screen.display(), "CAJA_EXTENSION_DIRS=" + plugins}),
                      environment)) {}

std::chrono::nanoseconds Caja::processorTimeAtRest() const {
    const auto limit = std::chrono::steady_clock::now() + patience;
    auto used = process_.processorTime();
    auto since = std::chrono::steady_clock::now();
    for (;;) {
        std::this_thread::sleep_for(glance);
        const auto now = std::chrono::steady_clock::now();
        const auto before = std::exchange(used, process_.processorTime());
        if (used - before > idling)
            since = now;
        else if (now - since > rest)
            return used;
        if (now > limit)
            throw std::runtime_error("Caja does not come to rest");
    }
}

} // namespace findersync::bench

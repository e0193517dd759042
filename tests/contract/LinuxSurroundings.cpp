#include "platform/linux/BufferedOutput.h"
#include "platform/linux/FinderSyncController.h"
#include "platform/linux/Image.h"
#include "platform/linux/Menu.h"
#include "platform/linux/RunLoop.h"
#include "tests/contract/SystemSurroundings.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace contract {

using platform::linux_backend::finderSyncController;

namespace {

void writeSettings(const std::string& text) {
    const auto folder = surroundings->folder.path() / suiteName;
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "settings.json") << text;
}

bool deliverWithin(std::chrono::milliseconds timeout) {
    flushOutput();
    return sd_event_run(platform::linux_backend::runLoopOfThisThread().event(),
                        static_cast<std::uint64_t>(timeout.count()) * 1000) > 0;
}

} // namespace

void setUp() {
    surroundings = std::make_unique<SystemSurroundings>();
    ::setenv("XDG_CONFIG_HOME", surroundings->folder.path().c_str(), 1);
    finderSyncController() = {};
}

void tearDown() {
    flushOutput();
    surroundings.reset();
}

void storeSettings(const platform::NSDictionary& settings) {
    const auto text = platform::dataWithJSONObject({settings}, false).value().bytes;
    writeSettings({text.begin(), text.end()});
}

void breakSettings() {
    writeSettings("{ no settings");
}

std::vector<std::string> watchedPaths() {
    std::vector<std::string> paths;
    for (const auto& url : finderSyncController().directoryURLs())
        paths.push_back(url->path().value_or(""));
    return paths;
}

std::map<std::string, std::string> badgeLabels() {
    std::map<std::string, std::string> labels;
    for (const auto& [identifier, badge] : finderSyncController().badges())
        labels.emplace(identifier, badge.label);
    return labels;
}

std::vector<std::string> assignedBadges() {
    // Only the last assignment is kept: one request is answered at a time.
    const std::string identifier = finderSyncController().takeAssignedBadge();
    return identifier.empty() ? std::vector<std::string>() : std::vector{identifier};
}

void select(const std::optional<std::vector<std::string>>& paths) {
    std::optional<std::vector<std::shared_ptr<const platform::NSURL>>> urls;
    if (paths)
        urls.emplace();
    for (const std::string& path : paths.value_or(std::vector<std::string>()))
        urls->push_back(platform::fileURLWithPath(path));
    finderSyncController().setSelectedItemURLs(std::move(urls));
}

std::vector<std::array<std::string, 3>> entriesOf(const platform::NSMenu& menu) {
    std::vector<std::array<std::string, 3>> entries;
    for (const auto& entry : dynamic_cast<const platform::linux_backend::Menu&>(menu).items()) {
        const auto& item = dynamic_cast<const platform::linux_backend::MenuItem&>(*entry);
        entries.push_back({item.title(), item.action(), item.imageName()});
    }
    return entries;
}

void flushOutput() {
    platform::linux_backend::flushStandardStreams();
}

void runFor(std::chrono::milliseconds duration) {
    (void)deliverWithin(duration);
}

void settle() {
    // On the loopback, everything arrives well within a tenth of a second. The bound ends a loop
    // that never comes to rest.
    for (int turn = 0; turn < 1000 && deliverWithin(std::chrono::milliseconds(100)); ++turn) {
    }
}

} // namespace contract

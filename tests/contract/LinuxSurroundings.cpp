#include "platform/linux/BufferedOutput.h"
#include "platform/linux/FinderSyncController.h"
#include "platform/linux/Image.h"
#include "platform/linux/Menu.h"
#include "platform/linux/RunLoop.h"
#include "tests/contract/LoopbackSurroundings.h"
#include "tests/contract/Surroundings.h"
#include "tests/platform/ScratchFolder.h"
#include "tests/platform/StreamCapture.h"

#include <boost/json.hpp>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <sys/xattr.h>
#include <unistd.h>

namespace contract {

namespace fs = std::filesystem;
using platform::linux_backend::finderSyncController;
using platform::linux_backend::runLoopOfThisThread;

namespace {

struct World {
    tests::ScratchFolder configuration;
    tests::StreamCapture standardOutput{STDOUT_FILENO};
    tests::StreamCapture standardError{STDERR_FILENO};

    [[nodiscard]] fs::path settingsFile() const {
        return configuration.path() / suiteName / "settings.json";
    }
};

std::unique_ptr<World> world;

boost::json::value json(const platform::Object& object) {
    struct Converter {
        boost::json::value operator()(platform::NSNull) const { return nullptr; }
        boost::json::value operator()(bool value) const { return value; }
        boost::json::value operator()(std::int64_t value) const { return value; }
        boost::json::value operator()(double value) const { return value; }
        boost::json::value operator()(const std::string& value) const {
            return boost::json::value(value);
        }
        boost::json::value operator()(const platform::NSData&) const { return nullptr; }
        boost::json::value operator()(const platform::NSArray& value) const {
            boost::json::array array;
            for (const platform::Object& element : value)
                array.push_back(json(element));
            return array;
        }
        boost::json::value operator()(const platform::NSDictionary& value) const {
            boost::json::object dictionary;
            for (const auto& [key, element] : value)
                dictionary[key] = json(element);
            return dictionary;
        }
    };
    return std::visit(Converter(), object.value);
}

void writeSettings(const std::string& text) {
    fs::create_directories(world->settingsFile().parent_path());
    std::ofstream(world->settingsFile()) << text;
}

/// Runs one turn of the loop, or waits a moment when there is nothing to deliver.
bool runFor(std::chrono::milliseconds patience) {
    sd_event* const event = runLoopOfThisThread().event();
    platform::linux_backend::flushStandardStreams();
    return sd_event_run(event, static_cast<std::uint64_t>(patience.count()) * 1000) > 0;
}

} // namespace

void setUp() {
    world = std::make_unique<World>();
    ::setenv("XDG_CONFIG_HOME", world->configuration.path().c_str(), 1);
    finderSyncController() = {};
}

void tearDown() {
    platform::linux_backend::flushStandardStreams();
    dropPeer();
    world.reset();
}

void storeSettings(const platform::NSDictionary& settings) {
    writeSettings(boost::json::serialize(json({settings})));
}

void breakSettings() {
    writeSettings("{ no settings");
}

std::string printed() {
    platform::linux_backend::flushStandardStreams();
    return world->standardOutput.text();
}

std::vector<std::string> logged() {
    platform::linux_backend::flushStandardStreams();
    std::vector<std::string> lines;
    std::istringstream text(world->standardError.text());
    for (std::string line; std::getline(text, line);)
        lines.push_back(line.substr(line.find("] ") + 2));
    return lines;
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

void select(const std::optional<std::vector<std::string>>& paths) {
    if (!paths) {
        finderSyncController().setSelectedItemURLs(std::nullopt);
        return;
    }
    std::vector<std::shared_ptr<const platform::NSURL>> urls;
    for (const std::string& path : *paths)
        urls.push_back(platform::fileURLWithPath(path));
    finderSyncController().setSelectedItemURLs(std::move(urls));
}

std::vector<std::string> assignedBadges() {
    // One request is answered at a time: the last assignment is all that is kept.
    const std::string identifier = finderSyncController().takeAssignedBadge();
    return identifier.empty() ? std::vector<std::string>() : std::vector{identifier};
}

std::vector<std::array<std::string, 3>> entriesOf(const platform::NSMenu& menu) {
    std::vector<std::array<std::string, 3>> entries;
    for (const auto& entry : dynamic_cast<const platform::linux_backend::Menu&>(menu).items()) {
        const auto& item = dynamic_cast<const platform::linux_backend::MenuItem&>(*entry);
        entries.push_back({item.title(), item.action(), item.imageName()});
    }
    return entries;
}

std::optional<std::string> itemWithAttributes(const std::vector<std::string>& names) {
    const fs::path path = world->configuration.path() / "item";
    std::ofstream(path) << "content";
    for (const std::string& name : names) {
        if (::setxattr(path.c_str(), name.c_str(), "value", 5, 0) != 0)
            return std::nullopt;
    }
    return path.string();
}

std::string missingItem() {
    return (world->configuration.path() / "missing").string();
}

bool runUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        runFor(std::chrono::milliseconds(50));
    }
    return true;
}

void settle() {
    // Nothing for a tenth of a second: everything on the loopback has long arrived. The bound
    // shows a loop that never comes to rest.
    for (int turn = 0; turn < 1000; ++turn) {
        if (!runFor(std::chrono::milliseconds(100)))
            return;
    }
}

} // namespace contract

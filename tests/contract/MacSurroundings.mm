// Apple's frameworks, or GNUstep's in their place.

#include "platform/macos/Image.h"
#include "platform/macos/Menu.h"
#include "platform/macos/Strings.h"
#include "platform/macos/URL.h"
#include "platform/macos/Values.h"
#include "tests/contract/LoopbackSurroundings.h"
#include "tests/contract/Surroundings.h"
#include "tests/macos/FinderDouble.h"
#include "tests/macos/SuiteDouble.h"
#include "tests/platform/ScratchFolder.h"
#include "tests/platform/StreamCapture.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <sstream>
#include <sys/xattr.h>
#include <thread>

namespace contract {

using platform::macos::stringObject;
using platform::macos::utf8Text;

namespace {

struct World {
    World() { finder = [FinderDouble install]; }
    ~World() {
        tests::letSuitesOpen(true);
        tests::storeSuite(suite(), nil);
        [pool drain];
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    static NSString* suite() { return stringObject(suiteName).autoreleased(); }

    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    FinderDouble* finder = nil;
    tests::ScratchFolder scratch;
    tests::StreamCapture standardOutput{STDOUT_FILENO};
    tests::StreamCapture standardError{STDERR_FILENO};
};

std::unique_ptr<World> world;

void runFor(std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end) {
        @autoreleasepool {
            NSDate* const soon = [NSDate dateWithTimeIntervalSinceNow:0.01];
            // Without anything scheduled, a run loop comes back at once.
            if (![[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:soon])
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
}

} // namespace

void setUp() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    world = std::make_unique<World>();
}

void tearDown() {
    dropPeer();
    world.reset();
}

void storeSettings(const platform::NSDictionary& settings) {
    const auto object = platform::macos::objectOfValue({settings});
    tests::storeSuite(World::suite(), object.get());
}

void breakSettings() {
    tests::letSuitesOpen(false);
}

std::string printed() {
    return world->standardOutput.text();
}

std::vector<std::string> logged() {
    std::vector<std::string> lines;
    std::istringstream text(world->standardError.text());
    for (std::string line; std::getline(text, line);)
        lines.push_back(line.substr(line.find("] ") + 2));
    return lines;
}

std::vector<std::string> watchedPaths() {
    std::vector<std::string> paths;
    for (NSURL* url in [world->finder directoryURLs])
        paths.push_back(utf8Text([url path]));
    std::ranges::sort(paths); // a set has no order
    return paths;
}

std::map<std::string, std::string> badgeLabels() {
    std::map<std::string, std::string> labels;
    for (NSArray* badge in [world->finder badges])
        labels[utf8Text([badge objectAtIndex:0])] = utf8Text([badge objectAtIndex:1]);
    return labels;
}

void select(const std::optional<std::vector<std::string>>& paths) {
    NSMutableArray* const urls = paths ? [NSMutableArray array] : nil;
    for (const std::string& path : paths.value_or(std::vector<std::string>()))
        [urls addObject:[NSURL fileURLWithPath:stringObject(path).autoreleased()]];
    [world->finder setSelectedItemURLs:urls];
}

std::vector<std::string> assignedBadges() {
    std::vector<std::string> identifiers;
    for (NSArray* assignment in [world->finder assignments])
        identifiers.push_back(utf8Text([assignment objectAtIndex:0]));
    return identifiers;
}

std::vector<std::array<std::string, 3>> entriesOf(const platform::NSMenu& menu) {
    std::vector<std::array<std::string, 3>> entries;
    for (NSMenuItem* item in [platform::macos::menuObject(menu) itemArray])
        entries.push_back({utf8Text([item title]), utf8Text(NSStringFromSelector([item action])),
                           utf8Text([[item image] name])});
    return entries;
}

std::optional<std::string> itemWithAttributes(const std::vector<std::string>& names) {
    const std::string path = (world->scratch.path() / "item").string();
    std::ofstream(path) << "content";
    for (const std::string& name : names) {
        if (::setxattr(path.c_str(), name.c_str(), "value", 5, 0, 0) != 0)
            return std::nullopt;
    }
    return path;
}

std::string missingItem() {
    return (world->scratch.path() / "missing").string();
}

bool runUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        runFor(std::chrono::milliseconds(1));
    }
    return true;
}

void settle() {
    // Everything on the loopback has long arrived by then.
    runFor(std::chrono::milliseconds(200));
}

} // namespace contract

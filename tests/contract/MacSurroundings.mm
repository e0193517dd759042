// Apple's frameworks, or GNUstep's in their place.

#include "platform/macos/Image.h"
#include "platform/macos/Menu.h"
#include "platform/macos/Strings.h"
#include "platform/macos/URL.h"
#include "platform/macos/Values.h"
#include "tests/contract/SystemSurroundings.h"
#include "tests/macos/FinderDouble.h"
#include "tests/macos/RunLoop.h"
#include "tests/macos/SuiteDouble.h"

#include <algorithm>
#include <csignal>

namespace contract {

using platform::macos::stringObject;
using platform::macos::utf8Text;

namespace {

NSAutoreleasePool* pool = nil;
FinderDouble* finder = nil;

NSString* suite() {
    return stringObject(suiteName).autoreleased();
}

} // namespace

void setUp() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    pool = [[NSAutoreleasePool alloc] init];
    finder = [FinderDouble install];
    surroundings = std::make_unique<SystemSurroundings>();
}

void tearDown() {
    surroundings.reset();
    tests::letSuitesOpen(true);
    tests::storeSuite(suite(), nil);
    [pool drain];
}

void storeSettings(const platform::NSDictionary& settings) {
    const auto object = platform::macos::objectOfValue({settings});
    tests::storeSuite(suite(), object.get());
}

void breakSettings() {
    tests::letSuitesOpen(false);
}

std::vector<std::string> watchedPaths() {
    std::vector<std::string> paths;
    for (NSURL* url in [finder directoryURLs])
        paths.push_back(utf8Text([url path]));
    std::ranges::sort(paths);
    return paths;
}

std::map<std::string, std::string> badgeLabels() {
    std::map<std::string, std::string> labels;
    for (NSArray* badge in [finder badges])
        labels[utf8Text([badge objectAtIndex:0])] = utf8Text([badge objectAtIndex:1]);
    return labels;
}

std::vector<std::string> assignedBadges() {
    std::vector<std::string> identifiers;
    for (NSArray* assignment in [finder assignments])
        identifiers.push_back(utf8Text([assignment objectAtIndex:0]));
    return identifiers;
}

void select(const std::optional<std::vector<std::string>>& paths) {
    NSMutableArray* const urls = paths ? [NSMutableArray array] : nil;
    for (const std::string& path : paths.value_or(std::vector<std::string>()))
        [urls addObject:[NSURL fileURLWithPath:stringObject(path).autoreleased()]];
    [finder setSelectedItemURLs:urls];
}

std::vector<std::array<std::string, 3>> entriesOf(const platform::NSMenu& menu) {
    std::vector<std::array<std::string, 3>> entries;
    for (NSMenuItem* item in [platform::macos::menuObject(menu) itemArray])
        entries.push_back({utf8Text([item title]), utf8Text(NSStringFromSelector([item action])),
                           utf8Text([[item image] name])});
    return entries;
}

void flushOutput() {} // nothing is buffered

void runFor(std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end)
        tests::runOnce();
}

void settle() {
    // On the loopback, everything arrives well within this time.
    runFor(std::chrono::milliseconds(200));
}

} // namespace contract

#import "tests/macos/PrincipalClassTest.h"

#include "Names.h"
#include "tests/macos/RunLoop.h"
#include "tests/macos/SuiteDouble.h"

#include <chrono>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace tests {

namespace {

NSString* group() {
    return [NSString stringWithUTF8String:findersync::applicationGroup];
}

} // namespace

Class principalClass() {
    @autoreleasepool {
        NSBundle* const bundle =
            [NSBundle bundleWithPath:[NSString stringWithUTF8String:FINDER_SYNC_MODULE]];
        NSDictionary* const extension = [bundle objectForInfoDictionaryKey:@"NSExtension"];
        NSString* const name = [extension objectForKey:@"NSExtensionPrincipalClass"];
        if (![bundle load] || NSClassFromString(name) == Nil)
            throw std::runtime_error("no principal class in " FINDER_SYNC_MODULE);
        return NSClassFromString(name);
    }
}

PrincipalClassTest::PrincipalClassTest() {
    store(@{});
}

PrincipalClassTest::~PrincipalClassTest() {
    letSuitesOpen(true);
    [pool drain];
    storeSuite(group(), nil);
}

void PrincipalClassTest::store(NSDictionary* settings) {
    NSMutableDictionary* const all = [NSMutableDictionary dictionaryWithObject:@(peer.port())
                                                                        forKey:@"ServerPort"];
    [all addEntriesFromDictionary:settings];
    storeSuite(group(), all);
}

FinderSync* PrincipalClassTest::start() {
    return [[principalClass() alloc] init];
}

FinderSync* PrincipalClassTest::connected() {
    FinderSync* const extension = [start() autorelease];
    if (const std::string trace = printedUntil("Sending\n"); !trace.ends_with("Sending\n"))
        throw std::runtime_error("no connection: " + trace);
    (void)logged();
    return extension;
}

FinderSync* PrincipalClassTest::connectedWithSelection(NSString* path) {
    FinderSync* const extension = connected();
    [extension setPathsOfRootFolders:@[ @"/sync" ]];
    [finder setSelectedItemURLs:@[ [NSURL fileURLWithPath:path] ]];
    return extension;
}

bool PrincipalClassTest::runUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        runOnce();
    }
    return true;
}

std::string PrincipalClassTest::printed() {
    const std::string text = standardOutput_.text();
    return text.substr(std::exchange(alreadyPrinted_, text.size()));
}

std::string PrincipalClassTest::printedUntil(std::string_view text) {
    std::string trace;
    (void)runUntil([&] { return (trace += printed()).find(text) != std::string::npos; });
    return trace;
}

std::vector<std::string> PrincipalClassTest::logged() {
    const std::string text = standardError_.text();
    std::istringstream fresh(text.substr(std::exchange(alreadyLogged_, text.size())));
    std::vector<std::string> lines;
    for (std::string line; std::getline(fresh, line);)
        lines.push_back(line.substr(line.find("] ") + 2)); // without time, name and process
    return lines;
}

} // namespace tests

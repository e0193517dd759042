#pragma once

#import "hosts/macos/FinderSync.h"
#import "tests/macos/FinderDouble.h"

#include "tests/platform/LoopbackPeer.h"
#include "tests/platform/StreamCapture.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tests {

/// The principal class, loaded from its bundle by the name in the bundle's property list.
Class principalClass();

/// A Finder, a companion application, and the principal objects that a test creates.
class PrincipalClassTest : public testing::Test {
protected:
    PrincipalClassTest();
    ~PrincipalClassTest() override;

    /// Stores the peer's port and these settings, which may name another port.
    void store(NSDictionary* settings);

    /// A new principal object. Owned by the caller.
    [[nodiscard]] static FinderSync* start();
    /// One that is connected to the peer; autoreleased.
    FinderSync* connected();
    /// One that is connected and has the root folder /sync; the Finder selects that item.
    FinderSync* connectedWithSelection(NSString* path);

    /// Runs the run loop until the condition holds; returns false if it does not within ten
    /// seconds.
    static bool runUntil(const std::function<bool()>& condition);

    /// What has been printed and logged since the last call.
    [[nodiscard]] std::string printed();
    [[nodiscard]] std::vector<std::string> logged();
    /// Runs the run loop until that text has been printed, then does as `printed`.
    [[nodiscard]] std::string printedUntil(std::string_view text);

    LoopbackPeer peer;
    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    FinderDouble* finder = [FinderDouble install];

private:
    StreamCapture standardOutput_{STDOUT_FILENO};
    StreamCapture standardError_{STDERR_FILENO};
    std::size_t alreadyPrinted_ = 0;
    std::size_t alreadyLogged_ = 0;
};

} // namespace tests

#pragma once

#import "hosts/macos/FinderSync.h"
#import "tests/macos/FinderDouble.h"

#include "tests/platform/LoopbackPeer.h"
#include "tests/platform/StreamCapture.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tests {

/// The principal class, loaded from its bundle by the name that the bundle gives.
Class principalClass();

/// A Finder, a companion application, and the principal objects that a test makes.
class PrincipalClassTest : public testing::Test {
protected:
    PrincipalClassTest();
    ~PrincipalClassTest() override;

    /// Stores settings that name the peer's port, besides the given ones.
    void store(NSDictionary* settings);

    /// A principal object that is started. Owned by the caller.
    [[nodiscard]] static FinderSync* start();
    /// One that is connected to the peer, and at rest. Released when the test is over.
    FinderSync* connected();
    /// One that is connected, knows the root folder /sync, and has this item selected.
    FinderSync* connectedWithSelection(NSString* path);

    /// Runs the run loop until the condition holds; gives false when it does not within a few
    /// seconds.
    static bool runUntil(const std::function<bool()>& condition);

    /// What has been printed, and logged, since this was last asked.
    [[nodiscard]] std::string printed();
    [[nodiscard]] std::vector<std::string> logged();

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

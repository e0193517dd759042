#pragma once

#import <Foundation/Foundation.h>

#include <chrono>
#include <thread>

namespace tests {

/// Runs this thread's run loop once, for at most a hundredth of a second.
inline void runOnce() {
    @autoreleasepool {
        NSDate* const soon = [NSDate dateWithTimeIntervalSinceNow:0.01];
        // A run loop with nothing scheduled returns at once.
        if (![[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:soon])
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace tests

// What the stand-ins and the back end correct, tested on GNUstep itself. These tests demand what
// Apple's frameworks do, so they are known differences; when one passes, its correction can go.

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include "tests/platform/LoopbackPeer.h"

#include <gtest/gtest.h>
#include <objc/runtime.h>

namespace {

class Bridged : public testing::Test {
protected:
    ~Bridged() override {
        [input close];
        [output close];
        [pool drain];
    }

    void open(NSInteger port) {
        [NSStream getStreamsToHost:[NSHost hostWithAddress:@"127.0.0.1"]
                              port:port
                       inputStream:&input
                      outputStream:&output];
        for (NSStream *stream in [NSArray arrayWithObjects:input, output, nil]) {
            [stream scheduleInRunLoop:[NSRunLoop currentRunLoop] forMode:NSDefaultRunLoopMode];
            [stream open];
        }
        NSDate* const later = [NSDate dateWithTimeIntervalSinceNow:0.2];
        [[NSRunLoop currentRunLoop] runUntilDate:later];
    }

    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    tests::LoopbackPeer peer;
    NSInputStream* input = nil;
    NSOutputStream* output = nil;
};

TEST_F(Bridged, AnIdleStreamHasNoBytes) {
    open(peer.port());
    ASSERT_EQ([output streamStatus], NSStreamStatusOpen);
    using Answer = BOOL (*)(id, SEL);
    const SEL selector = @selector(hasBytesAvailable);
    const auto original = reinterpret_cast<Answer>(
        class_getMethodImplementation([[input class] superclass], selector));
    EXPECT_FALSE(original(input, selector));
}

TEST_F(Bridged, APortIsNotCutToSixteenBits) {
    open(peer.port() + 65536);
    EXPECT_NE([output streamStatus], NSStreamStatusOpen);
}

TEST_F(Bridged, ComparingKnowsCanonicalEquivalence) {
    EXPECT_EQ([@"\u1e9b\u0323" compare:@"\u017f\u0323\u0307"], NSOrderedSame);
    EXPECT_EQ([@"\ud55c" compare:@"\u1112\u1161\u11ab"], NSOrderedSame);
}

TEST_F(Bridged, ABundleInApplesLayoutIsLoaded) {
    NSString* const path = [NSString stringWithUTF8String:FINDER_SYNC_APPEX];
    ASSERT_TRUE([[NSFileManager defaultManager]
        fileExistsAtPath:[path stringByAppendingPathComponent:@"Contents/MacOS/FinderSync"]]);
    EXPECT_TRUE([[NSBundle bundleWithPath:path] load]);
}

} // namespace

// What the macOS back end does beyond the contracts that all back ends share.

#include "platform/AppKit.h"
#include "platform/CoreFoundation.h"
#include "platform/System.h"
#include "platform/macos/Image.h"
#include "platform/macos/Menu.h"
#include "platform/macos/Strings.h"
#include "platform/macos/URL.h"
#include "platform/macos/Values.h"
#include "tests/platform/ScratchFolder.h"

#import <CoreFoundation/CoreFoundation.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <objc/runtime.h>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

using platform::Object;
using platform::macos::valueOfObject;

namespace {

bool givesStreams = true;
int writes = 0;
NSInputStream* givenInput = nil;

} // namespace

/// A number whose type code is that of a Boolean on some processors.
@interface CharacterNumber : NSNumber
@end

@implementation CharacterNumber

- (const char*)objCType {
    return @encode(BOOL);
}

- (BOOL)boolValue {
    return YES;
}

- (long long)longLongValue {
    return 5;
}

@end

/// Those methods of an output stream that are called here; it has no space.
@interface FullStream : NSObject
@end

@implementation FullStream

- (void)setDelegate:(id<NSStreamDelegate>)delegate {
    (void)delegate;
}

- (BOOL)hasSpaceAvailable {
    return NO;
}

- (NSInteger)write:(const uint8_t*)bytes maxLength:(NSUInteger)length {
    (void)bytes;
    ++writes;
    return static_cast<NSInteger>(length);
}

@end

/// Replaces the platform's own function.
void CFStreamCreatePairWithSocketToHost(CFAllocatorRef, CFStringRef, UInt32,
                                        CFReadStreamRef* readStream,
                                        CFWriteStreamRef* writeStream) {
    if (!givesStreams)
        return;
    givenInput = [[NSInputStream alloc] initWithData:[NSData data]];
    *readStream = reinterpret_cast<CFReadStreamRef>(givenInput);
    *writeStream = reinterpret_cast<CFWriteStreamRef>([[FullStream alloc] init]);
}

namespace {

class BackEnd : public testing::Test {
protected:
    BackEnd() = default;
    ~BackEnd() override { [pool_ drain]; }

    /// Half of a surrogate pair, which UTF-8 cannot hold.
    static NSString* halfPair() {
        const unichar half = 0xd800;
        return [NSString stringWithCharacters:&half length:1];
    }

private:
    NSAutoreleasePool* pool_ = [[NSAutoreleasePool alloc] init];
};

using Values = BackEnd;

TEST_F(Values, NumbersKeepTheirKindAndPrecision) {
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(valueOfObject(@(char{1})), Object{std::int64_t{1}});
    EXPECT_EQ(valueOfObject([NSNumber numberWithUnsignedChar:1]), Object{std::int64_t{1}});
    EXPECT_EQ(valueOfObject(@(-1)), Object{std::int64_t{-1}});
    EXPECT_EQ(valueOfObject(@(1LL << 40)), Object{std::int64_t{1} << 40});
    EXPECT_EQ(valueOfObject(@(largest + 0ULL)), Object{largest});
    EXPECT_EQ(valueOfObject(@(largest + 1ULL)), Object{0x1p63});
    EXPECT_EQ(valueOfObject(@0.5F), Object{0.5});
    EXPECT_EQ(valueOfObject(@0.1), Object{0.1});
    EXPECT_EQ(valueOfObject([NSDecimalNumber decimalNumberWithString:@"0.1"]), Object{0.1});
    EXPECT_EQ(valueOfObject(@(YES)), Object{true});
    EXPECT_EQ(valueOfObject(@(NO)), Object{false});
    EXPECT_EQ(valueOfObject([[[CharacterNumber alloc] init] autorelease]), Object{std::int64_t{5}});
}

TEST_F(Values, NilIsNull) {
    EXPECT_EQ(valueOfObject(nil), Object{platform::NSNull()});
    EXPECT_EQ(valueOfObject([NSNull null]), Object{platform::NSNull()});
}

TEST_F(Values, WhatHasNoCounterpartIsOpaque) {
    const Object opaque = {platform::NSData()};
    EXPECT_EQ(valueOfObject([NSDate date]), opaque);
    NSDictionary* const numbered = @{@1 : @"x"};
    EXPECT_EQ(valueOfObject(numbered), opaque);
    EXPECT_TRUE(platform::macos::entriesOf(numbered).empty());
    EXPECT_TRUE(platform::macos::entriesOf(@"text").empty());
    EXPECT_TRUE(platform::macos::entriesOf(nil).empty());
}

TEST_F(Values, HalfOfASurrogatePairIsOpaque) {
    const Object opaque = {platform::NSData()};
    EXPECT_EQ(valueOfObject(halfPair()), opaque);
    EXPECT_EQ(valueOfObject(@{halfPair() : @"x"}), opaque);
}

using Strings = BackEnd;

TEST_F(Strings, HalfOfASurrogatePairIsReplaced) {
    EXPECT_FALSE(platform::macos::isUTF8Encodable(halfPair()));
    EXPECT_TRUE(platform::macos::isUTF8Encodable(@"\U0001f517"));
    EXPECT_EQ(platform::macos::utf8Text([@"a" stringByAppendingString:halfPair()]).substr(0, 1),
              "a");
    EXPECT_NE(platform::macos::utf8Text(halfPair()), "");
}

using URLs = BackEnd;

TEST_F(URLs, ARelativeOneIsDescribedWithItsBase) {
    NSURL* const url = [NSURL URLWithString:@"b" relativeToURL:[NSURL URLWithString:@"http://a/"]];
    EXPECT_EQ(platform::macos::URL(url).description(), [[url description] UTF8String]);
    EXPECT_NE(platform::macos::URL(url).description(), [[url absoluteString] UTF8String]);
}

TEST_F(URLs, WhatTheyLackIsNotThere) {
    const platform::macos::URL page([NSURL URLWithString:@"http://a/b"]);
    EXPECT_EQ(page.filePathURL(), nullptr);
    EXPECT_EQ(page.path(), "/b");
    const platform::macos::URL none(nil);
    EXPECT_EQ(none.filePathURL(), nullptr);
    EXPECT_EQ(none.path(), std::nullopt);
    EXPECT_EQ(none.description(), "");
}

using Menus = BackEnd;

TEST_F(Menus, TitleAndKeyEquivalentArePassedOn) {
    const auto menu = platform::menuWithTitle("Title");
    EXPECT_TRUE([[platform::macos::menuObject(*menu) title] isEqual:@"Title"]);
    menu->addItem(platform::menuItemWithTitle("Entry", "act:", "k"));
    NSMenuItem* const item = [[platform::macos::menuObject(*menu) itemArray] objectAtIndex:0];
    EXPECT_TRUE([[item keyEquivalent] isEqual:@"k"]);
}

using Images = BackEnd;

TEST_F(Images, AreKeptAsLongAsTheyAreNeeded) {
    NSUInteger before = 0;
    NSImage* const named = [NSImage imageNamed:@"icon_share"];
    @autoreleasepool {
        before = [named retainCount];
        const auto image = platform::imageNamed("icon_share");
        EXPECT_EQ(platform::macos::imageObject(image.get()), named);
        EXPECT_GT([named retainCount], before);
    }
    EXPECT_EQ([named retainCount], before);
}

class Ignoring : public platform::NSStreamDelegate {
    void stream(platform::NSStream&, platform::NSStreamEvent) override {}
};

class Streams : public BackEnd {
protected:
    void createPair() {
        platform::CFStreamCreatePairWithSocketToHost("127.0.0.1", 61842, input, output);
    }

    std::shared_ptr<platform::NSInputStream> input;
    std::shared_ptr<platform::NSOutputStream> output;
};

TEST_F(Streams, NoneOfThePlatformsGivesNone) {
    givesStreams = false;
    createPair();
    givesStreams = true;
    EXPECT_EQ(input, nullptr);
    EXPECT_EQ(output, nullptr);
}

TEST_F(Streams, NothingIsWrittenWithoutSpace) {
    createPair();
    const std::uint8_t byte = '.';
    EXPECT_EQ(output->write(&byte, 1), -1);
    EXPECT_EQ(writes, 0);
}

TEST_F(Streams, TheObjectMadeForADelegateIsReleased) {
#if defined(__APPLE__)
    GTEST_SKIP() << "objects are counted by class on GNUstep only";
#else
    createPair();
    GSDebugAllocationActive(YES);
    Class const delegates = NSClassFromString(@"FSStreamDelegate");
    const int before = GSDebugAllocationCount(delegates);
    Ignoring delegate;
    input->setDelegate(&delegate);
    EXPECT_EQ(GSDebugAllocationCount(delegates), before + 1);
    input->setDelegate(&delegate);
    EXPECT_EQ(GSDebugAllocationCount(delegates), before + 1);
    input->setDelegate(nullptr);
    EXPECT_EQ(GSDebugAllocationCount(delegates), before);
    GSDebugAllocationActive(NO);
#endif
}

TEST_F(Streams, AStreamThatOutlivesItsOwnerHasNoDelegate) {
    createPair();
    Ignoring delegate;
    input->setDelegate(&delegate);
    NSObject* const made = static_cast<NSObject*>([givenInput delegate]);
    NSStream* const kept = [givenInput retain];
    input.reset();
    EXPECT_NE(static_cast<NSObject*>([kept delegate]), made);
    [kept release];
}

TEST_F(Streams, EachThreadHasItsRunLoop) {
    platform::NSRunLoop* other = nullptr;
    std::thread([&other] {
        @autoreleasepool {
            other = &platform::currentRunLoop();
        }
    }).join();
    EXPECT_NE(other, &platform::currentRunLoop());
}

/// Replaces a class method of NSJSONSerialization for as long as it lives.
class Substitution {
public:
    template <typename Function> Substitution(SEL selector, Function* function)
        : method_(class_getClassMethod([NSJSONSerialization class], selector)),
          original_(method_setImplementation(
              method_, reinterpret_cast<IMP>(reinterpret_cast<void (*)()>(function)))) {}
    ~Substitution() { method_setImplementation(method_, original_); }
    Substitution(const Substitution&) = delete;
    Substitution& operator=(const Substitution&) = delete;

private:
    Method method_;
    IMP original_;
};

NSUInteger optionsSeen = 99;

id noteOptions(id, SEL, id, NSUInteger options, NSError**) {
    optionsSeen = options;
    return nil;
}

BOOL isInvalid(id, SEL, id) {
    return NO;
}

using Serialization = BackEnd;

TEST_F(Serialization, ReadsWithoutOptions) {
    const Substitution reader(@selector(JSONObjectWithData:options:error:), &noteOptions);
    EXPECT_EQ(platform::JSONObjectWithData({.bytes = {'[', ']'}}), std::nullopt);
    EXPECT_EQ(optionsSeen, 0U);
}

TEST_F(Serialization, ThePlatformSaysWhatIsValid) {
    EXPECT_TRUE(platform::isValidJSONObject({platform::NSArray()}));
    const Substitution judge(@selector(isValidJSONObject:), &isInvalid);
    EXPECT_FALSE(platform::isValidJSONObject({platform::NSArray()}));
}

TEST(Attributes, AreThoseOfTheItem) {
    const tests::ScratchFolder folder;
    const std::string path = folder.path().string();
    EXPECT_EQ(platform::listxattr(path, nullptr, 0), 0);
    if (::setxattr(path.c_str(), "user.a", "value", 5, 0, 0) != 0)
        GTEST_SKIP() << "the file system of the temporary folder has no extended attributes";
    char name[sizeof "user.a"] = {};
    EXPECT_EQ(platform::listxattr(path, nullptr, 0), 7);
    EXPECT_EQ(platform::listxattr(path, name, sizeof name), 7);
    EXPECT_STREQ(name, "user.a");
    EXPECT_EQ(platform::listxattr(path + "/missing", nullptr, 0), -1);
    EXPECT_EQ(platform::errorNumber(), ENOENT);
}

TEST(Output, NothingIsLostInAPipeThatHasNoRoomAtTimes) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        (void)::dup2(ends[1], STDOUT_FILENO);
        for (int line = 0; line < 2000; ++line)
            platform::print(std::string(99, '.'));
        ::_exit(0);
    }
    (void)::close(ends[1]);
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // until it is full
    std::size_t total = 0;
    char buffer[4096];
    for (ssize_t count = 0; (count = ::read(ends[0], buffer, sizeof buffer)) > 0;)
        total += static_cast<std::size_t>(count);
    (void)::close(ends[0]);
    (void)::waitpid(child, nullptr, 0);
    EXPECT_EQ(total, 200000U);
}

TEST(FatalErrors, ControlCharactersBecomeSpaces) {
    EXPECT_EXIT(platform::fatalError("one\ttwo\x1b[2Jthree\rfour\nfive"),
                testing::KilledBySignal(SIGABRT), "fatal error: one two .2Jthree four five\n$");
}

TEST(FatalErrors, TheReasonIsReadableInTheLog) {
#if defined(__APPLE__)
    GTEST_SKIP() << "the system's log cannot be read from here";
#else
    EXPECT_EXIT(platform::fatalError("one\ntwo"), testing::KilledBySignal(SIGABRT),
                "^log: fatal error: one two\n");
#endif
}

} // namespace

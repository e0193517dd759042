// What the back end makes of the platform's objects, beyond the contracts that all back ends share.

#include "platform/AppKit.h"
#include "platform/CoreFoundation.h"
#include "platform/FinderSync.h"
#include "platform/System.h"
#include "platform/macos/Image.h"
#include "platform/macos/Menu.h"
#include "platform/macos/Strings.h"
#include "platform/macos/URL.h"
#include "platform/macos/Values.h"
#include "tests/macos/FinderDouble.h"

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
#include <thread>
#include <unistd.h>

using platform::Object;
using platform::macos::objectOfValue;
using platform::macos::Reference;
using platform::macos::valueOfObject;

namespace {

bool givesStreams = true;
std::string requestedHost;
std::uint32_t requestedPort = 0;
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

/// As much of an output stream as is called here; one that has no room.
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

/// In the place of the platform's own.
void CFStreamCreatePairWithSocketToHost(CFAllocatorRef, CFStringRef host, UInt32 port,
                                        CFReadStreamRef* readStream,
                                        CFWriteStreamRef* writeStream) {
    requestedHost = [reinterpret_cast<NSString*>(const_cast<__CFString*>(host)) UTF8String];
    requestedPort = port;
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

TEST_F(Values, IntegersOfEveryWidthAreIntegers) {
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(valueOfObject([NSNumber numberWithChar:1]), Object{std::int64_t{1}});
    EXPECT_EQ(valueOfObject([NSNumber numberWithUnsignedChar:1]), Object{std::int64_t{1}});
    EXPECT_EQ(valueOfObject([NSNumber numberWithInt:-1]), Object{std::int64_t{-1}});
    EXPECT_EQ(valueOfObject([NSNumber numberWithLongLong:1LL << 40]),
              Object{std::int64_t{1} << 40});
    EXPECT_EQ(valueOfObject([NSNumber numberWithUnsignedLongLong:largest]), Object{largest});
    EXPECT_EQ(valueOfObject([NSNumber numberWithUnsignedLongLong:largest + 1ULL]), Object{0x1p63});
}

TEST_F(Values, FractionsKeepTheirPrecision) {
    EXPECT_EQ(valueOfObject([NSNumber numberWithFloat:0.5F]), Object{0.5});
    EXPECT_EQ(valueOfObject([NSNumber numberWithDouble:0.1]), Object{0.1});
    EXPECT_EQ(valueOfObject(objectOfValue({0.1}).autoreleased()), Object{0.1});
}

TEST_F(Values, BooleansAreNotNumbers) {
    EXPECT_EQ(valueOfObject([NSNumber numberWithBool:YES]), Object{true});
    EXPECT_EQ(valueOfObject([NSNumber numberWithBool:NO]), Object{false});
    EXPECT_EQ(valueOfObject([[[CharacterNumber alloc] init] autorelease]), Object{std::int64_t{5}});
}

TEST_F(Values, ListsKeepTheirOrder) {
    NSArray* const list = [NSArray arrayWithObjects:@"b", @"a", nil];
    const Object value = {platform::NSArray{{std::string("b")}, {std::string("a")}}};
    EXPECT_EQ(valueOfObject(list), value);
    EXPECT_TRUE([objectOfValue(value).autoreleased() isEqual:list]);
}

TEST_F(Values, NilIsNull) {
    EXPECT_EQ(valueOfObject(nil), Object{platform::NSNull()});
    EXPECT_EQ(valueOfObject([NSNull null]), Object{platform::NSNull()});
}

TEST_F(Values, WhatHasNoCounterpartIsOpaque) {
    const Object opaque = {platform::NSData()};
    EXPECT_EQ(valueOfObject([NSDate date]), opaque);
    NSNumber* const number = [NSNumber numberWithInt:1];
    NSDictionary* const numbered = [NSDictionary dictionaryWithObject:@"x" forKey:number];
    EXPECT_EQ(valueOfObject(numbered), opaque);
    EXPECT_TRUE(platform::macos::entriesOf(numbered).empty());
    EXPECT_TRUE(platform::macos::entriesOf(@"text").empty());
    EXPECT_TRUE(platform::macos::entriesOf(nil).empty());
}

TEST_F(Values, HalfOfASurrogatePairIsOpaque) {
    const Object opaque = {platform::NSData()};
    EXPECT_EQ(valueOfObject(halfPair()), opaque);
    EXPECT_EQ(valueOfObject([NSDictionary dictionaryWithObject:@"x" forKey:halfPair()]), opaque);
}

TEST_F(Values, ObjectsBelongToTheReferenceAlone) {
#if defined(__APPLE__)
    GTEST_SKIP() << "small values are no objects that are counted";
#else
    for (const Object& value :
         {Object{std::int64_t{1} << 40}, Object{0.1}, Object{std::string("a text of some length")},
          Object{platform::NSData{{1, 2, 3}}}, Object{platform::NSArray{{true}}},
          Object{platform::NSDictionary{{"key", {true}}}}}) {
        Reference<id> object;
        @autoreleasepool {
            object = objectOfValue(value);
        }
        EXPECT_EQ([object.get() retainCount], 1U) << value.value.index();
    }
#endif
}

using Strings = BackEnd;

TEST_F(Strings, HalfOfASurrogatePairIsReplaced) {
    EXPECT_FALSE(platform::macos::isUTF8Encodable(halfPair()));
    EXPECT_TRUE(platform::macos::isUTF8Encodable(@"\U0001f517"));
    EXPECT_EQ(platform::macos::utf8Text([@"a" stringByAppendingString:halfPair()]).substr(0, 1),
              "a");
    EXPECT_NE(platform::macos::utf8Text(halfPair()), "");
}

TEST_F(Strings, AnAccentIsFoundInEitherForm) {
    EXPECT_TRUE(platform::containsString("/caf\u00e9/x", "/cafe\u0301"));
    EXPECT_TRUE(platform::containsString("/cafe\u0301/x", "/caf\u00e9"));
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

using Controllers = BackEnd;

TEST_F(Controllers, TheURLOfABadgeIsPassedOnAsItIs) {
    FinderDouble* const finder = [FinderDouble install];
    NSURL* const url = [NSURL URLWithString:@"http://a/b"];
    platform::defaultController().setBadgeIdentifier("Other", platform::macos::URL(url));
    ASSERT_EQ([[finder assignments] count], 1U);
    NSArray* const assignment = [[finder assignments] objectAtIndex:0];
    EXPECT_TRUE(([assignment isEqual:[NSArray arrayWithObjects:@"Other", url, nil]]));
}

class Ignoring : public platform::NSStreamDelegate {
    void stream(platform::NSStream&, platform::NSStreamEvent) override {}
};

class Streams : public BackEnd {
protected:
    Streams() {
        givesStreams = true;
        createPair(61842);
    }

    void createPair(std::uint32_t port) {
        platform::CFStreamCreatePairWithSocketToHost("10.0.0.1", port, input, output);
    }

    std::shared_ptr<platform::NSInputStream> input;
    std::shared_ptr<platform::NSOutputStream> output;
};

TEST_F(Streams, APortThatDoesNotExistBecomesZero) {
    for (const std::uint32_t port : {0U, 1U, 61842U, 65535U}) {
        createPair(port);
        EXPECT_EQ(requestedPort, port);
        EXPECT_EQ(requestedHost, "10.0.0.1");
    }
    for (const std::uint32_t port : {65536U, 65537U, 4294967295U}) {
        createPair(port);
        EXPECT_EQ(requestedPort, 0U) << port;
    }
}

TEST_F(Streams, NoneOfThePlatformsGivesNone) {
    givesStreams = false;
    input.reset();
    output.reset();
    createPair(61842);
    EXPECT_EQ(input, nullptr);
    EXPECT_EQ(output, nullptr);
}

TEST_F(Streams, NothingIsWrittenWhereThereIsNoRoom) {
    const std::uint8_t byte = '.';
    EXPECT_EQ(output->write(&byte, 1), -1);
    EXPECT_EQ(writes, 0);
}

TEST_F(Streams, ADelegateMadeForAStreamGoesWithIt) {
#if defined(__APPLE__)
    GTEST_SKIP() << "objects are counted by class on GNUstep only";
#else
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

/// Puts a function in the place of a class method, for as long as it lives.
class Substitution {
public:
    template <typename Function> Substitution(Class owner, SEL selector, Function* function)
        : method_(class_getClassMethod(owner, selector)),
          original_(method_setImplementation(method_, reinterpret_cast<IMP>(function))) {}
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

TEST_F(Serialization, IsReadWithoutOptions) {
    const Substitution reader([NSJSONSerialization class],
                              @selector(JSONObjectWithData:options:error:), &noteOptions);
    EXPECT_EQ(platform::JSONObjectWithData({.bytes = {'[', ']'}}), std::nullopt);
    EXPECT_EQ(optionsSeen, 0U);
}

TEST_F(Serialization, IsPrettyPrintedOnlyWhenAskedFor) {
    const Substitution writer([NSJSONSerialization class],
                              @selector(dataWithJSONObject:options:error:), &noteOptions);
    EXPECT_EQ(platform::dataWithJSONObject({platform::NSArray()}, false), std::nullopt);
    EXPECT_EQ(optionsSeen, 0U);
    EXPECT_EQ(platform::dataWithJSONObject({platform::NSArray()}, true), std::nullopt);
    EXPECT_EQ(optionsSeen, NSUInteger{NSJSONWritingPrettyPrinted});
}

TEST_F(Serialization, ThePlatformSaysWhatIsValid) {
    EXPECT_TRUE(platform::isValidJSONObject({platform::NSArray()}));
    const Substitution judge([NSJSONSerialization class], @selector(isValidJSONObject:),
                             &isInvalid);
    EXPECT_FALSE(platform::isValidJSONObject({platform::NSArray()}));
}

using Output = BackEnd;

TEST_F(Output, NothingIsLostInAPipeThatHasNoRoomAtTimes) {
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

using ErrorTexts = BackEnd;

TEST_F(ErrorTexts, AreThoseOfTheGivenNumber) {
    errno = ENOENT;
    EXPECT_STREQ(platform::strerror(EACCES), "Permission denied");
}

using FatalErrors = BackEnd;

TEST_F(FatalErrors, ControlCharactersBecomeSpaces) {
    EXPECT_EXIT(platform::fatalError("one\ttwo\x1b[2Jthree\rfour\nfive"),
                testing::KilledBySignal(SIGABRT), "fatal error: one two .2Jthree four five\n$");
}

} // namespace

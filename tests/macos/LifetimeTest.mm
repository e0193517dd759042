// Nothing is leaked and nothing is released once too often.

#import "tests/macos/PrincipalClassTest.h"

#include "platform/macos/Reference.h"

#include <map>
#include <objc/runtime.h>
#include <type_traits>

using platform::macos::adopt;
using platform::macos::Reference;
using platform::macos::retain;

namespace {

// Misuse does not compile.
using Text = Reference<NSString*>;
static_assert(!std::is_constructible_v<Text, NSString*>, "adopt or retain has to be said");
static_assert(!std::is_convertible_v<NSString*, Text>);
static_assert(!std::is_assignable_v<Text&, NSString*>);
static_assert(!std::is_convertible_v<Text, NSString*>, "a count is not given away in passing");
static_assert(!std::is_convertible_v<Text, bool>);
static_assert(!platform::macos::ObjectPointer<void*>);
static_assert(!platform::macos::ObjectPointer<CFStringRef>,
              "these are cast to their classes first");
static_assert(platform::macos::ObjectPointer<id>);
template <typename T>
concept GivesObjectOfTemporary = requires(T&& reference) {
    static_cast<T&&>(reference).get();
};
static_assert(!GivesObjectOfTemporary<Text>, "its object may be gone already");
static_assert(GivesObjectOfTemporary<Text&>);
template <typename T>
concept GivesCountAway = requires(T&& reference) {
    static_cast<T&&>(reference).autoreleased();
};
static_assert(!GivesCountAway<Text&>, "a count is not given away in passing");
static_assert(GivesCountAway<Text>);

using References = tests::PrincipalClassTest;

TEST_F(References, CountOnceEach) {
    NSObject* const object = [[NSObject alloc] init];
    auto first = adopt(object);
    EXPECT_EQ([object retainCount], 1U);
    {
        const auto second = first;
        EXPECT_EQ([object retainCount], 2U);
        const auto third = retain(object);
        EXPECT_EQ([object retainCount], 3U);
        auto fourth = std::move(first);
        EXPECT_EQ([object retainCount], 3U);
        EXPECT_FALSE(first); // NOLINT: moved from, and known to be empty
        fourth = second;
        EXPECT_EQ([object retainCount], 3U);
        first = std::move(fourth);
    }
    EXPECT_EQ([object retainCount], 1U);
    const auto kept = first;
    @autoreleasepool {
        EXPECT_EQ(std::move(first).autoreleased(), object);
        EXPECT_EQ([object retainCount], 2U);
    }
    EXPECT_EQ([object retainCount], 1U);
    EXPECT_FALSE(Reference<id>());

    NSObject* const other = [[NSObject alloc] init];
    auto fifth = adopt(other);
    fifth = kept;
    EXPECT_EQ([object retainCount], 2U);
    auto& itself = fifth = adopt([[NSObject alloc] init]);
    fifth = itself;
    EXPECT_EQ([fifth.get() retainCount], 1U);
    fifth = kept;
    auto sixth = adopt([[NSObject alloc] init]);
    fifth = std::move(sixth);
    EXPECT_FALSE(sixth); // NOLINT: moved from, and known to be empty
    EXPECT_EQ([object retainCount], 1U);
    EXPECT_FALSE(retain<id>(nil));
}

class Lifetimes : public tests::PrincipalClassTest {
protected:
    /// Everything that the Finder, a companion and a user do with an extension, once.
    void play() {
        tests::LoopbackPeer companion;
        @autoreleasepool {
            store([NSDictionary
                dictionaryWithObjectsAndKeys:[NSNumber numberWithInt:companion.port()],
                                             @"ServerPort", @"/", @"RootFolder", @"contact",
                                             @"ShareContactTitle", @"link", @"ShareViaUrlTitle",
                                             @"back up", @"BackupTitle", nil]);
            FinderSync* const extension = start();
            std::string trace;
            (void)runUntil([&] { return (trace += printed()).find("Send") != std::string::npos; });
            companion.send("{\"type\":\"add_folder\",\"path\":\"/s\u00e9\"}\n"
                           "{\"type\":\"set_menu_usage\",\"displayBackup\":\"1\"}\n");
            (void)runUntil([&] { return (trace += printed()).find("usage") != std::string::npos; });
            request(extension);
            access(extension);
            companion.finishSending();
            (void)runUntil([&] { return (trace += printed()).find("ignor") != std::string::npos; });
            [extension release];
            [finder setSelectedItemURLs:nil];
            finder = [FinderDouble install];
        }
        (void)companion.received();
        EXPECT_TRUE(companion.seesEnd()) << "the streams are released with the object";
    }

    void request(FinderSync* extension) {
        NSURL* const url = [NSURL fileURLWithPath:@"/s\u00e9"];
        [extension beginObservingDirectoryAtURL:url];
        [extension endObservingDirectoryAtURL:url];
        [extension requestBadgeIdentifierForURL:url];
        [finder
            setSelectedItemURLs:[NSArray arrayWithObject:[NSURL fileURLWithPath:@"/s\u00e9/a"]]];
        NSMenu* const menu = [extension menuForMenuKind:FIMenuKindContextualMenuForItems];
        EXPECT_EQ([[menu itemArray] count], 2U);
        for (NSMenuItem* item in [menu itemArray])
            [extension performSelector:[item action] withObject:item];
        [extension sendClickedData:@"clicked"];
    }

    void access(FinderSync* extension) {
        for (NSString *key in [NSArray
                 arrayWithObjects:@"myFolderURL", @"pathsOfRootFolders", @"serverPort",
                                  @"isSocketConnected", @"displayUrlLink", @"displayBackup",
                                  @"shareContactTitle", @"shareViaUrlTitle", @"backupTitle", nil])
            [extension setValue:[extension valueForKey:key] forKey:key];
        (void)[extension serverAddress];
        (void)[extension valueForKey:@"serverAddress"];
        (void)[extension errnoDescription];
        NSDictionary* const parsed =
            [extension JSONParseDictionary:@"{\"a\":[1.5,true,null,\"x\"]}"];
        (void)[extension JSONStringify:parsed prettyPrinted:YES];
    }
};

TEST_F(Lifetimes, AURLIsKeptWhileItIsAPropertyAndNotLonger) {
    NSURL* const url = [[NSURL alloc] initFileURLWithPath:@"/kept"];
    @autoreleasepool {
        FinderSync* const extension = start();
        [extension setMyFolderURL:url];
        EXPECT_EQ([url retainCount], 2U);
        EXPECT_EQ([extension myFolderURL], url);
        [extension release];
    }
    EXPECT_EQ([url retainCount], 1U);
    [url release];
}

TEST_F(Lifetimes, AURLOfARequestIsNotKept) {
    NSURL* const url = [[NSURL alloc] initFileURLWithPath:@"/asked"];
    @autoreleasepool {
        FinderSync* const extension = [start() autorelease];
        [extension requestBadgeIdentifierForURL:url];
        [extension beginObservingDirectoryAtURL:url];
        [extension endObservingDirectoryAtURL:url];
    }
    EXPECT_EQ([url retainCount], 1U);
    [url release];
}

TEST_F(Lifetimes, AMenuBelongsToWhoeverAskedForIt) {
    FinderSync* const extension = connectedWithSelection(@"/sync/a");
    NSMenu* menu = nil;
    @autoreleasepool {
        menu = [[extension menuForMenuKind:FIMenuKindContextualMenuForItems] retain];
        EXPECT_EQ([menu retainCount], 2U);
    }
    EXPECT_EQ([menu retainCount], 1U);
    [menu release];
}

TEST_F(Lifetimes, OneRoundLeavesNoMoreObjectsThanTheOneBefore) {
#if defined(__APPLE__)
    GTEST_SKIP() << "objects are counted by class on GNUstep only; use the leaks tool here";
#else
    const auto counted = [](const std::function<void()>& round) {
        const auto count = [] {
            std::map<std::string, int> objects;
            for (const Class* known = GSDebugAllocationClassList(); *known != Nil; ++known)
                objects[class_getName(*known)] = GSDebugAllocationCount(*known);
            return objects;
        };
        round(); // fills the platform's caches
        std::map<std::string, int> change = count();
        EXPECT_GT(change.size(), 5U) << "nothing is counted";
        for (auto& [name, objects] : change)
            objects = -objects;
        for (int again = 0; again < 3; ++again)
            round();
        for (const auto& [name, objects] : count())
            change[name] += objects;
        return change;
    };
    play();
    GSDebugAllocationActive(YES);
    const auto ofRounds = counted([this] { play(); });
    // GNUstep's own settings leave a text behind.
    auto ofSettings = counted([] {
        @autoreleasepool {
            [[[NSUserDefaults alloc] initWithSuiteName:@"com.example.other"] release];
        }
    });
    GSDebugAllocationActive(NO);
    for (const auto& [name, objects] : ofRounds)
        EXPECT_EQ(objects, ofSettings[name]) << name;
#endif
}

} // namespace

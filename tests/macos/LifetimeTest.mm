// Objects are neither leaked nor released too often.

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
static_assert(!std::is_constructible_v<Text, NSString*>, "the caller says adopt or retain");
static_assert(!std::is_assignable_v<Text&, NSString*>);
static_assert(!std::is_convertible_v<Text, NSString*>, "ownership is not given away implicitly");
static_assert(!std::is_convertible_v<Text, bool>);
static_assert(!platform::macos::ObjectPointer<void*>);
static_assert(!platform::macos::ObjectPointer<CFStringRef>,
              "these are cast to their classes first");
template <typename T>
concept GivesObjectOfTemporary = requires(T&& reference) { static_cast<T&&>(reference).get(); };
static_assert(!GivesObjectOfTemporary<Text>, "its object may be released already");
template <typename T>
concept GivesCountAway = requires(T&& reference) { static_cast<T&&>(reference).autoreleased(); };
static_assert(!GivesCountAway<Text&>, "ownership is not given away implicitly");

using References = tests::PrincipalClassTest;

TEST_F(References, EachHoldsOneCount) {
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
        EXPECT_FALSE(first); // NOLINT: a moved-from reference is empty
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
    EXPECT_FALSE(sixth); // NOLINT: a moved-from reference is empty
    EXPECT_EQ([object retainCount], 1U);
    EXPECT_FALSE(retain<id>(nil));
}

class Lifetimes : public tests::PrincipalClassTest {
protected:
    /// Does once everything that the Finder, a companion and a user do with an extension.
    void play() {
        tests::LoopbackPeer companion;
        @autoreleasepool {
            store(@{
                @"ServerPort" : @(companion.port()),
                @"RootFolder" : @"/",
                @"ShareContactTitle" : @"contact",
                @"ShareViaUrlTitle" : @"link",
                @"BackupTitle" : @"back up"
            });
            FinderSync* const extension = start();
            (void)printedUntil("Sending\n");
            companion.send("{\"type\":\"add_folder\",\"path\":\"/s\u00e9\"}\n"
                           "{\"type\":\"set_menu_usage\",\"displayBackup\":\"1\"}\n");
            (void)printedUntil("usage");
            request(extension);
            access(extension);
            companion.finishSending();
            (void)printedUntil("ignore\n");
            [extension release];
            [finder setSelectedItemURLs:nil];
            finder = [FinderDouble install];
        }
        (void)companion.received();
        EXPECT_TRUE(companion.seesEnd()) << "the streams outlive the object";
    }

    void request(FinderSync* extension) {
        NSURL* const url = [NSURL fileURLWithPath:@"/s\u00e9"];
        [extension beginObservingDirectoryAtURL:url];
        [extension endObservingDirectoryAtURL:url];
        [extension requestBadgeIdentifierForURL:url];
        [finder setSelectedItemURLs:@[ [NSURL fileURLWithPath:@"/s\u00e9/a"] ]];
        NSMenu* const menu = [extension menuForMenuKind:FIMenuKindContextualMenuForItems];
        EXPECT_EQ([[menu itemArray] count], 2U);
        for (NSMenuItem* item in [menu itemArray])
            [extension performSelector:[item action] withObject:item];
        [extension sendClickedData:@"clicked"];
    }

    void access(FinderSync* extension) {
        for (NSString* key in @[
                 @"myFolderURL", @"pathsOfRootFolders", @"serverPort", @"isSocketConnected",
                 @"displayUrlLink", @"displayBackup", @"shareContactTitle", @"shareViaUrlTitle",
                 @"backupTitle"
             ])
            [extension setValue:[extension valueForKey:key] forKey:key];
        (void)[extension serverAddress];
        (void)[extension valueForKey:@"serverAddress"];
        (void)[extension errnoDescription];
        NSDictionary* const parsed =
            [extension JSONParseDictionary:@"{\"a\":[1.5,true,null,\"x\"]}"];
        (void)[extension JSONStringify:parsed prettyPrinted:YES];
        (void)[extension JSONStringify:@[ @(1LL << 40) ] prettyPrinted:NO];
    }
};

TEST_F(Lifetimes, AURLIsKeptAsLongAsItIsAProperty) {
    NSURL* const url = [[NSURL alloc] initFileURLWithPath:@"/kept"];
    @autoreleasepool {
        FinderSync* const extension = start();
        @autoreleasepool {
            [extension requestBadgeIdentifierForURL:url];
            [extension beginObservingDirectoryAtURL:url];
            [extension endObservingDirectoryAtURL:url];
        }
        EXPECT_EQ([url retainCount], 1U);
        [extension setMyFolderURL:url];
        EXPECT_EQ([url retainCount], 2U);
        EXPECT_EQ([extension myFolderURL], url);
        [extension release];
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
        round(); // fills the frameworks' caches
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
    // GNUstep leaks one string each time a suite is opened.
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

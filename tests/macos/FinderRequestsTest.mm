// What the Finder asks of the principal object, and what a user picks.

#import "tests/macos/PrincipalClassTest.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

namespace {

std::atomic readsElsewhere = 0;

} // namespace

/// Counts how often it is read on another thread than the main one.
@interface WatchedURL : NSURL
@end

@implementation WatchedURL

- (NSString*)path {
    readsElsewhere += [NSThread isMainThread] ? 0 : 1;
    return [super path];
}

- (NSURL*)filePathURL {
    readsElsewhere += [NSThread isMainThread] ? 0 : 1;
    return [super filePathURL];
}

@end

namespace {

using FinderRequests = tests::PrincipalClassTest;
using JSON = tests::PrincipalClassTest;
using Lines = std::vector<std::string>;

TEST_F(FinderRequests, ABadgeIsAssignedToTheVeryURL) {
    FinderSync* const extension = connected();
    [extension setPathsOfRootFolders:@[ @"/a", @"/caf\u00e9", @"/b" ]];
    NSURL* const url = [NSURL fileURLWithPath:@"/cafe\u0301"];
    [extension requestBadgeIdentifierForURL:url];
    EXPECT_TRUE(([[finder assignments] isEqual:@[ @[ @"FolderIco", url ] ]]));
    EXPECT_EQ([[[finder assignments] lastObject] lastObject], url);
    EXPECT_EQ(logged(), (Lines{"requestBadgeIdentifierForURL: file:///cafe%CC%81", "curpath: /a",
                               "path: /cafe\u0301", "curpath: /caf\u00e9", "path: /cafe\u0301"}));
}

TEST_F(FinderRequests, WithoutAURLAreFatal) {
    FinderSync* const extension = [start() autorelease];
    [extension setPathsOfRootFolders:@[ @"/a" ]];
    for (const SEL request : {
             @selector(beginObservingDirectoryAtURL:), @selector(endObservingDirectoryAtURL:),
                 @selector(requestBadgeIdentifierForURL:)
         })
        EXPECT_EXIT([extension performSelector:request withObject:nil],
                    testing::KilledBySignal(SIGABRT), "fatal error: a URL has no file path");
}

TEST_F(FinderRequests, TheMenuHoldsTheEntriesForAnItemInARootFolder) {
    FinderSync* const extension = connectedWithSelection(@"/sync/\u00e9");
    [extension setShareContactTitle:@"Contact"];
    [extension setShareViaUrlTitle:@"L\u00e4nk"];
    [extension setBackupTitle:@"Back up"];
    [extension setDisplayBackup:1];
    NSMenu* const menu = [extension menuForMenuKind:FIMenuKindContextualMenuForItems];
    ASSERT_NE(menu, nil);
    EXPECT_TRUE([[menu title] isEqual:@""]);
    std::vector<std::array<std::string, 4>> entries;
    for (NSMenuItem* item in [menu itemArray]) {
        entries.push_back({[[item title] UTF8String],
                           [NSStringFromSelector([item action]) UTF8String],
                           [[item keyEquivalent] UTF8String],
                           [[[item image] name] UTF8String]});
        EXPECT_EQ([item target], nil) << "the Finder sends the action to the principal object";
    }
    EXPECT_EQ(entries, (std::vector<std::array<std::string, 4>>{
                           {"L\u00e4nk", "createLinkClicked:", "", "icon_URLlink"},
                           {"Back up", "backupClicked:", "", "icon_Backup"}}));
    EXPECT_EQ(printed(), "path: Optional(\"/sync/\u00e9\")\n");
    for (const FIMenuKind kind :
         {FIMenuKindContextualMenuForContainer, FIMenuKindContextualMenuForSidebar,
          FIMenuKindToolbarItemMenu, static_cast<FIMenuKind>(4)})
        EXPECT_EQ([extension menuForMenuKind:kind], nil) << kind;
}

TEST_F(FinderRequests, FromAnotherThreadAreHandedToTheMainThreadAndLoggedOnce) {
    FinderSync* const extension = connectedWithSelection(@"/sync/a");
    NSURL* const url = [[[WatchedURL alloc] initFileURLWithPath:@"/sync/a"] autorelease];
    [finder setSelectedItemURLs:@[ url ]];
    NSMenu* menu = nil;
    std::atomic isDone = false;
    std::thread finderThread([&] {
        @autoreleasepool {
            [extension beginObservingDirectoryAtURL:url];
            [extension endObservingDirectoryAtURL:url];
            [extension requestBadgeIdentifierForURL:url];
            menu = [[extension menuForMenuKind:FIMenuKindContextualMenuForItems] retain];
            for (const SEL action : {
                     @selector(createLinkClicked:), @selector(backupClicked:),
                         @selector(shareContactsClicked:), @selector(inProgressClicked:),
                         @selector(notSyncedClicked:), @selector(syncedClicked:)
                 })
                [extension performSelector:action withObject:nil];
        }
        isDone = true;
    });
    ASSERT_TRUE(runUntil([&] { return isDone.load(); }));
    finderThread.join();
    EXPECT_EQ(readsElsewhere, 0);
    EXPECT_EQ([[menu itemArray] count], 1U);
    [menu release];
    EXPECT_EQ(
        logged(),
        (Lines{"beginObservingDirectoryAtURL: did not come on the main thread: handed over",
               "beginObservingDirectoryAtURL: file:///sync/a",
               "endObservingDirectoryAtURL: file:///sync/a",
               "requestBadgeIdentifierForURL: file:///sync/a", "curpath: /sync", "path: /sync/a"}));
}

TEST_F(FinderRequests, EachActionSendsItsReport) {
    FinderSync* const extension = connectedWithSelection(@"/sync/caf\u00e9");
    std::string types;
    for (const auto& [selector, type] : std::vector<std::pair<SEL, std::string>>{
             {@selector(createLinkClicked:), "clicked_create_url_link"},
             {@selector(backupClicked:), "clicked_backup"},
             {@selector(shareContactsClicked:), "clicked_share_contacts"},
             {@selector(inProgressClicked:), "clicked_in_progress"},
             {@selector(notSyncedClicked:), "clicked_not_synced"},
             {@selector(syncedClicked:), "clicked_synced"},
             {@selector(sendClickedData:), "another"}}) {
        const std::size_t begin = peer.received().size();
        [extension performSelector:selector withObject:@"another"];
        (void)runUntil([&] { return peer.received().size() > begin; });
        const std::string text = peer.received().substr(begin);
        NSDictionary* const report = [NSJSONSerialization
            JSONObjectWithData:[NSData dataWithBytes:text.data() length:text.size()]
                       options:0
                         error:nullptr];
        NSDictionary* const expected = @{
            @"type" : [NSString stringWithUTF8String:type.c_str()],
            @"items" : @[ @"/sync/caf\u00e9" ]
        };
        EXPECT_TRUE([report isEqual:expected]) << text;
    }
}

TEST_F(FinderRequests, TheErrorTextIsThatOfTheLastError) {
    FinderSync* const extension = connected();
    errno = ENOENT;
    EXPECT_TRUE([[extension errnoDescription] isEqual:@"No such file or directory"]);
    errno = EACCES;
    EXPECT_TRUE([[extension errnoDescription] isEqual:@"Permission denied"]);
}

TEST_F(JSON, IsWrittenAndRead) {
    FinderSync* const extension = connected();
    NSDictionary* const dictionary = @{@"key" : @[ @"\u00e9", [NSNull null], @(YES), @0.5 ]};
    NSString* const compact = [extension JSONStringify:dictionary prettyPrinted:NO];
    NSString* const pretty = [extension JSONStringify:dictionary prettyPrinted:YES];
    EXPECT_EQ([compact rangeOfString:@"\n"].length, 0U) << [compact UTF8String];
    EXPECT_EQ([pretty rangeOfString:@"\n"].length, 1U) << [pretty UTF8String];
    EXPECT_TRUE([[extension JSONParseDictionary:compact] isEqual:dictionary]);
    EXPECT_TRUE([[extension JSONParseDictionary:pretty] isEqual:dictionary]);
    for (NSString* const text : {@"[1]", @"", @"{", static_cast<NSString*>(nil)})
        EXPECT_TRUE([[extension JSONParseDictionary:text] isEqual:@{}]);
}

TEST_F(JSON, ValuesThatJSONDoesNotHaveAreTheEmptyText) {
    FinderSync* const extension = connected();
    for (const id value : {id{nil}, id{@"text"}, id{@[ [NSDate date] ]}, id{@{@1 : @"x"}}})
        EXPECT_TRUE([[extension JSONStringify:value prettyPrinted:NO] isEqual:@""]);
}

} // namespace

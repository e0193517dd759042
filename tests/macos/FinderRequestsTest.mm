// What the Finder asks of the principal object, and what a user picks.

#import "tests/macos/PrincipalClassTest.h"

#include <array>
#include <cerrno>
#include <csignal>

namespace {

using Entry = std::array<std::string, 4>; // title, action, key equivalent, image

std::vector<Entry> entriesOf(NSMenu* menu) {
    std::vector<Entry> entries;
    for (NSMenuItem* item in [menu itemArray])
        entries.push_back({[[item title] UTF8String],
                           [NSStringFromSelector([item action]) UTF8String],
                           [[item keyEquivalent] UTF8String],
                           [[[item image] name] UTF8String]});
    return entries;
}

/// What the companion has received, as JSON texts one after the other.
NSArray* reports(const std::string& received) {
    NSMutableArray* const reports = [NSMutableArray array];
    std::size_t begin = 0;
    for (std::size_t end = received.find('}'); end != std::string::npos;
         end = received.find('}', begin)) {
        const std::string text = received.substr(begin, end + 1 - begin);
        NSData* const data = [NSData dataWithBytes:text.data() length:text.size()];
        [reports addObject:[NSJSONSerialization JSONObjectWithData:data options:0 error:nullptr]];
        begin = end + 1;
    }
    return reports;
}

NSDictionary* report(NSString* type, NSArray* items) {
    return [NSDictionary dictionaryWithObjectsAndKeys:type, @"type", items, @"items", nil];
}

class FinderRequests : public tests::PrincipalClassTest {
protected:
    /// What has been received once that many reports are there.
    NSArray* reportsReceived(NSUInteger count) {
        (void)runUntil([&] { return [reports(peer.received()) count] >= count; });
        return reports(peer.received());
    }
};

using Observation = FinderRequests;

TEST_F(Observation, IsLoggedWithTheURL) {
    FinderSync* const extension = connected();
    [extension beginObservingDirectoryAtURL:[NSURL fileURLWithPath:@"/Users/a b"]];
    EXPECT_EQ(logged(),
              std::vector<std::string>{"beginObservingDirectoryAtURL: file:///Users/a%20b"});
    [extension endObservingDirectoryAtURL:[NSURL fileURLWithPath:@"/Users/a b"]];
    EXPECT_EQ(logged(),
              std::vector<std::string>{"endObservingDirectoryAtURL: file:///Users/a%20b"});
    EXPECT_EQ(printed(), "");
}

TEST_F(Observation, OfNoURLIsFatal) {
    FinderSync* const extension = connected();
    NSURL* none = nil; // as a caller may pass it that was not compiled with care
    EXPECT_EXIT([extension beginObservingDirectoryAtURL:none], testing::KilledBySignal(SIGABRT),
                "fatal error: a URL has no file path");
    EXPECT_EXIT([extension endObservingDirectoryAtURL:none], testing::KilledBySignal(SIGABRT),
                "fatal error: a URL has no file path");
}

using BadgeRequest = FinderRequests;

TEST_F(BadgeRequest, OfARootFolderAssignsTheBadgeToTheVeryURL) {
    FinderSync* const extension = connected();
    [extension setPathsOfRootFolders:[NSArray arrayWithObjects:@"/a", @"/caf\u00e9", @"/b", nil]];
    NSURL* const url = [NSURL fileURLWithPath:@"/cafe\u0301"];
    [extension requestBadgeIdentifierForURL:url];
    ASSERT_EQ([[finder assignments] count], 1U);
    NSArray* const assignment = [[finder assignments] objectAtIndex:0];
    EXPECT_TRUE([[assignment objectAtIndex:0] isEqual:@"FolderIco"]);
    EXPECT_EQ([assignment objectAtIndex:1], url);
    EXPECT_EQ(logged(), (std::vector<std::string>{
                            "requestBadgeIdentifierForURL: file:///cafe%CC%81", "curpath: /a",
                            "path: /cafe\u0301", "curpath: /caf\u00e9", "path: /cafe\u0301"}));
}

TEST_F(BadgeRequest, OfAnythingElseAssignsNone) {
    FinderSync* const extension = connected();
    [extension setPathsOfRootFolders:[NSArray arrayWithObject:@"/a"]];
    [extension requestBadgeIdentifierForURL:[NSURL fileURLWithPath:@"/a/b"]];
    [extension requestBadgeIdentifierForURL:[NSURL fileURLWithPath:@"/A"]];
    EXPECT_EQ([[finder assignments] count], 0U);
    NSURL* none = nil; // as a caller may pass it that was not compiled with care
    EXPECT_EXIT([extension requestBadgeIdentifierForURL:none], testing::KilledBySignal(SIGABRT),
                "fatal error: a URL has no file path");
}

using Menu = FinderRequests;

TEST_F(Menu, HoldsTheEntriesForAnItemInARootFolder) {
    FinderSync* const extension = connectedWithSelection(@"/sync/\u00e9");
    [extension setShareContactTitle:@"Contact"];
    [extension setShareViaUrlTitle:@"L\u00e4nk"];
    [extension setBackupTitle:@"Back up"];
    [extension setDisplayBackup:1];
    NSMenu* const menu = [extension menuForMenuKind:FIMenuKindContextualMenuForItems];
    ASSERT_NE(menu, nil);
    EXPECT_TRUE([[menu title] isEqual:@""]);
    EXPECT_EQ(entriesOf(menu),
              (std::vector<Entry>{{"L\u00e4nk", "createLinkClicked:", "", "icon_URLlink"},
                                  {"Back up", "backupClicked:", "", "icon_Backup"}}));
    for (NSMenuItem* item in [menu itemArray])
        EXPECT_EQ([item target], nil) << "the Finder sends the action to the principal object";
    EXPECT_EQ(printed(), "path: Optional(\"/sync/\u00e9\")\n");
}

TEST_F(Menu, IsForTheItemsMenuOnly) {
    FinderSync* const extension = connectedWithSelection(@"/sync/a");
    EXPECT_NE([extension menuForMenuKind:FIMenuKindContextualMenuForItems], nil);
    for (const FIMenuKind kind :
         {FIMenuKindContextualMenuForContainer, FIMenuKindContextualMenuForSidebar,
          FIMenuKindToolbarItemMenu, static_cast<FIMenuKind>(4)})
        EXPECT_EQ([extension menuForMenuKind:kind], nil) << kind;
}

TEST_F(Menu, IsNotOfferedWithoutALink) {
    FinderSync* const extension = connectedWithSelection(@"/sync/a");
    [extension setIsSocketConnected:NO];
    EXPECT_EQ([extension menuForMenuKind:FIMenuKindContextualMenuForItems], nil);
}

TEST_F(Menu, WithoutASelectionIsFatal) {
    FinderSync* const extension = connectedWithSelection(@"/sync/a");
    [finder setSelectedItemURLs:nil];
    EXPECT_EXIT([extension menuForMenuKind:FIMenuKindContextualMenuForItems],
                testing::KilledBySignal(SIGABRT), "fatal error: ");
}

TEST_F(Menu, ActionsReachThePrincipalObject) {
    FinderSync* const extension = connectedWithSelection(@"/sync/a");
    [extension setDisplayBackup:1];
    NSMenu* const menu = [extension menuForMenuKind:FIMenuKindContextualMenuForItems];
    for (NSMenuItem* item in [menu itemArray])
        [extension performSelector:[item action] withObject:item];
    NSArray* const items = [NSArray arrayWithObject:@"/sync/a"];
    NSArray* const expected = [NSArray arrayWithObjects:report(@"clicked_create_url_link", items),
                                                        report(@"clicked_backup", items), nil];
    EXPECT_TRUE([reportsReceived(2) isEqual:expected]) << peer.received();
}

using Actions = FinderRequests;

TEST_F(Actions, SendOneReportEach) {
    FinderSync* const extension = connectedWithSelection(@"/sync/caf\u00e9");
    struct {
        SEL selector;
        NSString* type;
    } const actions[] = {
        {@selector(createLinkClicked:), @"clicked_create_url_link"},
        {@selector(backupClicked:), @"clicked_backup"},
        {@selector(shareContactsClicked:), @"clicked_share_contacts"},
        {@selector(inProgressClicked:), @"clicked_in_progress"},
        {@selector(notSyncedClicked:), @"clicked_not_synced"},
        {@selector(syncedClicked:), @"clicked_synced"},
        {@selector(createLinkClicked:), @"clicked_create_url_link"},
    };
    NSMutableArray* const expected = [NSMutableArray array];
    for (const auto& action : actions) {
        [extension performSelector:action.selector withObject:nil];
        [expected addObject:report(action.type, [NSArray arrayWithObject:@"/sync/caf\u00e9"])];
    }
    EXPECT_TRUE([reportsReceived([expected count]) isEqual:expected]) << peer.received();
}

TEST_F(Actions, ReportTheSelectionInItsOrder) {
    FinderSync* const extension = connected();
    NSMutableArray* const urls = [NSMutableArray array];
    NSArray* const paths = [NSArray arrayWithObjects:@"/b", @"/c", @"/a", nil];
    for (NSString* path in paths)
        [urls addObject:[NSURL fileURLWithPath:path]];
    [finder setSelectedItemURLs:urls];
    [extension sendClickedData:@"clicked"];
    NSArray* const expected = [NSArray arrayWithObject:report(@"clicked", paths)];
    EXPECT_TRUE([reportsReceived(1) isEqual:expected]) << peer.received();
}

TEST_F(Actions, OfAnotherTypeCanBeSent) {
    FinderSync* const extension = connectedWithSelection(@"/sync/a");
    [finder setSelectedItemURLs:[NSArray array]];
    [extension sendClickedData:@"clicked_\u00e9"];
    NSArray* const expected = [NSArray arrayWithObject:report(@"clicked_\u00e9", [NSArray array])];
    EXPECT_TRUE([reportsReceived(1) isEqual:expected]) << peer.received();
}

using JSON = FinderRequests;

TEST_F(JSON, IsWrittenAndRead) {
    FinderSync* const extension = connected();
    NSArray* const value =
        [NSArray arrayWithObjects:@"\u00e9", [NSNull null], [NSNumber numberWithBool:YES],
                                  [NSNumber numberWithDouble:0.5], nil];
    NSDictionary* const dictionary = [NSDictionary dictionaryWithObject:value forKey:@"key"];
    NSString* const compact = [extension JSONStringify:dictionary prettyPrinted:NO];
    NSString* const pretty = [extension JSONStringify:dictionary prettyPrinted:YES];
    EXPECT_EQ([compact rangeOfString:@"\n"].length, 0U) << [compact UTF8String];
    EXPECT_EQ([pretty rangeOfString:@"\n"].length, 1U) << [pretty UTF8String];
    EXPECT_TRUE([[extension JSONParseDictionary:compact] isEqual:dictionary]);
    EXPECT_TRUE([[extension JSONParseDictionary:pretty] isEqual:dictionary]);
}

TEST_F(JSON, IsEmptyForWhatItDoesNotKnow) {
    FinderSync* const extension = connected();
    EXPECT_TRUE([[extension JSONStringify:nil prettyPrinted:NO] isEqual:@""]);
    EXPECT_TRUE([[extension JSONStringify:@"text" prettyPrinted:NO] isEqual:@""]);
    NSArray* const dates = [NSArray arrayWithObject:[NSDate date]];
    EXPECT_TRUE([[extension JSONStringify:dates prettyPrinted:NO] isEqual:@""]);
    NSDictionary* const numbered = [NSDictionary dictionaryWithObject:@"x"
                                                               forKey:[NSNumber numberWithInt:1]];
    EXPECT_TRUE([[extension JSONStringify:numbered prettyPrinted:NO] isEqual:@""]);
}

TEST_F(JSON, OtherThanADictionaryIsReadAsTheEmptyOne) {
    FinderSync* const extension = connected();
    for (NSString *text in [NSArray arrayWithObjects:@"[1]", @"", @"{", nil])
        EXPECT_TRUE([[extension JSONParseDictionary:text] isEqual:[NSDictionary dictionary]]);
    EXPECT_TRUE([[extension JSONParseDictionary:nil] isEqual:[NSDictionary dictionary]]);
}

using ErrorText = FinderRequests;

TEST_F(ErrorText, IsTheOneOfTheLastError) {
    FinderSync* const extension = connected();
    errno = ENOENT;
    NSString* const text = [extension errnoDescription];
    EXPECT_TRUE([text isEqual:@"No such file or directory"]) << [text UTF8String];
    errno = EACCES;
    EXPECT_TRUE([[extension errnoDescription] isEqual:@"Permission denied"]);
}

} // namespace

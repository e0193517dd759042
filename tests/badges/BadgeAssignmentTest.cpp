#include "tests/RecordingTest.h"
#include "tests/WatchedFetches.h"

#include <csignal>

using findersync::FinderSync;
using platform::recording::makeURL;
using tests::CountingFetches;
using tests::Strings;
using tests::TellingOfFetches;
using tests::world;

namespace {

class BadgeAssignment : public tests::RecordingTest {
protected:
    BadgeAssignment() { startConnected(); }

    /// Asks about an item; gives the badge that it got, empty for none.
    std::string badgeOf(const platform::NSURL& url) {
        world().assignments.clear();
        forgetCalls();
        extension->requestBadgeIdentifierForURL(url);
        return world().assignments.empty() ? "" : world().assignments.back().identifier;
    }
    std::string badgeOf(const std::string& path) {
        return badgeOf(*makeURL("file://" + path, path));
    }

    void setRoots(Strings roots) { extension->setPathsOfRootFolders(std::move(roots)); }
};

class BadgeAssignmentDeath : public BadgeAssignment {};

TEST_F(BadgeAssignment, WithoutRootFoldersOneLineIsLoggedAndNothingElseIsAsked) {
    EXPECT_EQ(badgeOf("/Users/a/Sync"), "");
    EXPECT_EQ(calls("NSLog: "),
              Strings{"requestBadgeIdentifierForURL: %@ <- file:///Users/a/Sync"});
    EXPECT_EQ(calls("filePathURL: "), Strings{"file:///Users/a/Sync"});
    EXPECT_TRUE(calls("path: ").empty());
}

TEST_F(BadgeAssignment, WithoutRootFoldersAnItemWithoutAPathIsNoFailure) {
    EXPECT_EQ(badgeOf(*makeURL("file:///x", std::nullopt)), "");
}

TEST_F(BadgeAssignment, ARootFolderGetsTheBadge) {
    setRoots({"/Users/a/Sync"});
    EXPECT_EQ(badgeOf(*makeURL("file:///Users/a/Sync/", "/Users/a/Sync")), "FolderIco");
    EXPECT_EQ(badgeOf("/Users/a/Sync/doc.txt"), "");
    EXPECT_EQ(badgeOf("/Users/a"), "");
    EXPECT_EQ(badgeOf("/Users/a/Sync2"), "");
    EXPECT_TRUE(world().assignments.empty()); // an empty identifier would be one, too
}

TEST_F(BadgeAssignment, TheURLIsPassedOnExactlyAsItCame) {
    setRoots({"/a"});
    const auto url = makeURL("file:///a/", "/a");
    EXPECT_EQ(badgeOf(*url), "FolderIco");
    EXPECT_EQ(world().assignments.back().url, url.get());
    EXPECT_EQ(world().assignments.size(), 1U);
}

TEST_F(BadgeAssignment, AccentsMatchHoweverTheyAreWritten) {
    setRoots({"/caf\u00e9"});
    EXPECT_EQ(badgeOf("/cafe\u0301"), "FolderIco");
    setRoots({"/\ud55c"});
    EXPECT_EQ(badgeOf("/\u1112\u1161\u11ab"), "FolderIco");
    setRoots({"/\u212b"});
    EXPECT_EQ(badgeOf("/\u00c5"), "FolderIco");
    EXPECT_EQ(badgeOf("/A\u030a"), "FolderIco");
    EXPECT_EQ(badgeOf("/A"), "");
}

TEST_F(BadgeAssignment, PathsAreNotNormalised) {
    setRoots({"/a/../b", "~/Sync", "/a/./c", "", "/Users/b/Sync/", "/Users/b/case"});
    EXPECT_EQ(badgeOf(*makeURL("file:///Users/b/Sync/", "/Users/b/Sync")), "");
    EXPECT_EQ(badgeOf("/Users/b/Case"), "");
    EXPECT_EQ(badgeOf("/b"), "");
    EXPECT_EQ(badgeOf("/Users/a/Sync"), "");
    EXPECT_EQ(badgeOf("/a/c"), "");
    EXPECT_EQ(badgeOf("/"), "");
    EXPECT_EQ(badgeOf("/a/../b"), "FolderIco");
}

TEST_F(BadgeAssignment, APathThatHoldsANulIsComparedToItsEnd) {
    setRoots({std::string("/a\0b", 4)});
    EXPECT_EQ(badgeOf("/a"), "");
    EXPECT_EQ(badgeOf(std::string("/a\0b", 4)), "FolderIco");
}

TEST_F(BadgeAssignment, ExaminationStopsAtTheFirstMatch) {
    setRoots({"/r0", "/r1", "/r2", "/r3", "/r4"});
    EXPECT_EQ(badgeOf("/r2"), "FolderIco");
    EXPECT_EQ(calls("NSLog: "),
              (Strings{"requestBadgeIdentifierForURL: %@ <- file:///r2", "curpath: %@ <- /r0",
                       "path: %@ <- /r2", "curpath: %@ <- /r1", "path: %@ <- /r2",
                       "curpath: %@ <- /r2", "path: %@ <- /r2"}));
    EXPECT_EQ(calls("setBadgeIdentifier:forURL: "), Strings{"FolderIco file:///r2"});
}

TEST_F(BadgeAssignment, ARequestLogsOneLineAndTwoForEachEntryExamined) {
    for (std::size_t count = 0; count < 8; ++count) {
        Strings roots;
        for (std::size_t index = 0; index < count; ++index)
            roots.push_back("/r" + std::to_string(index));
        setRoots(roots);
        EXPECT_EQ(badgeOf("/elsewhere"), "");
        EXPECT_EQ(calls("NSLog: ").size(), 1 + 2 * count);
        for (std::size_t index = 0; index < count; ++index) {
            EXPECT_EQ(badgeOf("/r" + std::to_string(index)), "FolderIco");
            EXPECT_EQ(calls("NSLog: ").size(), 1 + 2 * (index + 1));
        }
    }
}

TEST_F(BadgeAssignment, RemovingARootFolderChangesNoBadgeThatIsShown) {
    receive("{\"type\":\"add_folder\",\"path\":\"/a\"}\n");
    EXPECT_EQ(badgeOf("/a"), "FolderIco");
    const auto shown = world().assignments.size();
    receive("{\"type\":\"del_folder\",\"path\":\"/a\"}\n");
    EXPECT_EQ(world().assignments.size(), shown);
    EXPECT_EQ(badgeOf("/a"), "");
}

TEST_F(BadgeAssignment, BadgesGoOnWhenTheLinkIsDown) {
    setRoots({"/a"});
    closeLink();
    EXPECT_EQ(badgeOf("/a"), "FolderIco");
}

TEST_F(BadgeAssignment, TheListIsFetchedThroughItsGetterAtEachStep) {
    auto& counting = startConnected<CountingFetches>();
    setRoots({"/a", "/b", "/c"});
    counting.fetches = 0;
    EXPECT_EQ(badgeOf("/elsewhere"), "");
    EXPECT_EQ(counting.fetches, 4); // the count, then each entry
}

TEST_F(BadgeAssignmentDeath, AListThatBecomesShorter) {
    auto& counting = startConnected<CountingFetches>();
    setRoots({"/a", "/b", "/c"});
    for (const int fetches : {1, 2}) { // the entry is the first behind the end, or a later one
        counting.fetches = 0;
        counting.shrinkAfter = fetches;
        expectFatal([&] { (void)badgeOf("/elsewhere"); },
                    "the root folders have changed during a badge request");
    }
}

TEST_F(BadgeAssignmentDeath, TheFilePathIsLoggedBeforeTheListIsFetched) {
    startConnected<TellingOfFetches>();
    const auto url = makeURL("https://example.com/a", "/a", false);
    EXPECT_EXIT(badgeOf(*url), testing::KilledBySignal(SIGABRT), "print: Sending\nfatal error");
}

TEST_F(BadgeAssignmentDeath, TheRootIsLoggedBeforeThePathIsAskedFor) {
    setRoots({"/a"});
    const auto url = makeURL("file:///x", std::nullopt);
    EXPECT_EXIT(badgeOf(*url), testing::KilledBySignal(SIGABRT),
                "NSLog: curpath: %@ <- /a\nfatal error");
}

TEST_F(BadgeAssignmentDeath, AURLWithoutAFilePath) {
    const auto url = makeURL("https://example.com/a", "/a", false);
    expectFatal([&] { (void)badgeOf(*url); }, "a URL has no file path: https://example.com/a");
}

TEST_F(BadgeAssignmentDeath, AURLWithoutAPathOnceThereIsARootFolder) {
    setRoots({"/a"});
    const auto url = makeURL("file:///x", std::nullopt);
    expectFatal([&] { (void)badgeOf(*url); }, "a URL has no path: file:///x");
}

} // namespace

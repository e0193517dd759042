#include "tests/RecordingTest.h"
#include "tests/WatchedFetches.h"

#include <csignal>

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

TEST_F(BadgeAssignment, ExaminationStopsAtTheFirstMatch) {
    setRoots({"/r0", "/r1", "/r2", "/r3", "/r4"});
    EXPECT_EQ(badgeOf("/r2"), "FolderIco");
    EXPECT_EQ(calls("NSLog: "),
              (Strings{"requestBadgeIdentifierForURL: %@ <- file:///r2", "curpath: %@ <- /r0",
                       "path: %@ <- /r2", "curpath: %@ <- /r1", "path: %@ <- /r2",
                       "curpath: %@ <- /r2", "path: %@ <- /r2"}));
    EXPECT_EQ(calls("setBadgeIdentifier:forURL: "), Strings{"FolderIco file:///r2"});
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
    EXPECT_EXIT(badgeOf(*url), testing::KilledBySignal(SIGABRT),
                "print: Sending\nfatal error: a URL has no file path: https://example.com/a\n$");
}

TEST_F(BadgeAssignmentDeath, TheRootIsLoggedBeforeThePathIsAskedFor) {
    setRoots({"/a"});
    const auto url = makeURL("file:///x", std::nullopt);
    EXPECT_EXIT(badgeOf(*url), testing::KilledBySignal(SIGABRT),
                "NSLog: curpath: %@ <- /a\nfatal error: a URL has no path: file:///x\n$");
}

} // namespace

#include "tests/RecordingTest.h"
#include "tests/WatchedFetches.h"

#include <csignal>

using platform::FIMenuKind;
using platform::recording::makeURL;
using platform::recording::MenuItem;
using tests::CountingFetches;
using tests::script;
using tests::Strings;
using tests::TellingOfFetches;

namespace {

class ContextMenu : public tests::RecordingTest {
protected:
    ContextMenu() {
        startConnected();
        extension->setShareContactTitle("Contacts");
        extension->setShareViaUrlTitle("Link");
        extension->setBackupTitle("Back up");
    }

    /// The entries offered on the selection, none when there is no menu.
    std::optional<std::vector<MenuItem>>
    menu(FIMenuKind kind = FIMenuKind::ContextualMenuForItems) {
        forgetCalls();
        const auto offered = extension->menuForMenuKind(kind);
        if (!offered)
            return std::nullopt;
        return platform::recording::itemsOf(*offered);
    }

    bool isOfferedOn(const std::string& path) {
        select({path});
        return menu().has_value();
    }

    void setRoots(Strings roots) { extension->setPathsOfRootFolders(std::move(roots)); }
};

class ContextMenuDeath : public ContextMenu {};

TEST_F(ContextMenu, TheMenuIsBuiltInTheExactOrderAndTheDroppedEntryIsPreparedToo) {
    setRoots({"/a/Sync"});
    extension->setDisplayBackup(1);
    select({"/a/Sync/x"});
    forgetCalls();
    const auto offered = extension->menuForMenuKind(FIMenuKind::ContextualMenuForItems);
    EXPECT_EQ(calls(), (Strings{
                           "defaultController",
                           "selectedItemURLs",
                           "path: file:///a/Sync/x",
                           "print: path: Optional(\"/a/Sync/x\")",
                           "rangeOfString: /a/Sync/x /a/Sync",
                           "isEqualToString: /a/Sync/x /a/Sync",
                           "NSMenu initWithTitle: ",
                           "initWithTitle:action:keyEquivalent: Contacts, shareContactsClicked:, ",
                           "imageNamed: icon_share",
                           "setImage: shareContactsClicked: icon_share",
                           "NSMenuItem released: shareContactsClicked:",
                           "initWithTitle:action:keyEquivalent: Link, createLinkClicked:, ",
                           "imageNamed: icon_URLlink",
                           "setImage: createLinkClicked: icon_URLlink",
                           "addItem: createLinkClicked:",
                           "initWithTitle:action:keyEquivalent: Back up, backupClicked:, ",
                           "imageNamed: icon_Backup",
                           "setImage: backupClicked: icon_Backup",
                           "addItem: backupClicked:",
                       }));
}

TEST_F(ContextMenu, NoMenuWhileTheLinkIsDownAndTheSelectionIsNotEvenRead) {
    setRoots({"/a"});
    select({"/a/x"});
    extension->setIsSocketConnected(false);
    for (const auto kind : {0U, 1U, 2U, 3U, 99U}) {
        EXPECT_EQ(menu(FIMenuKind{kind}), std::nullopt) << kind;
        EXPECT_TRUE(calls().empty()) << kind;
    }
}

TEST_F(ContextMenu, OtherKindsGetNoMenuAndTheSelectionIsReadBeforeTheKindIsTested) {
    setRoots({"/a"});
    select({"/a/x"});
    for (const auto kind :
         {FIMenuKind::ContextualMenuForContainer, FIMenuKind::ContextualMenuForSidebar,
          FIMenuKind::ToolbarItemMenu, FIMenuKind{4}}) {
        EXPECT_EQ(menu(kind), std::nullopt);
        EXPECT_EQ(calls(), (Strings{"defaultController", "selectedItemURLs"}));
    }
}

TEST_F(ContextMenu, NothingOrSeveralItemsSelectedGetNoMenuAndNoTrace) {
    setRoots({"/a"});
    for (const Strings& paths : {Strings{}, Strings{"/a/x", "/a/y"}, Strings{"/a/x", "/a/x"}}) {
        select(paths);
        EXPECT_EQ(menu(), std::nullopt);
        EXPECT_EQ(trace(), "");
    }
}

TEST_F(ContextMenu, ARootFolderInsideAnotherGetsTheMenu) {
    setRoots({"/a/Sync", "/a/Sync/Team"});
    EXPECT_TRUE(isOfferedOn("/a/Sync/Team"));
    setRoots({"/a/Sync/Team", "/a/Sync"});
    EXPECT_TRUE(isOfferedOn("/a/Sync/Team"));
    EXPECT_FALSE(isOfferedOn("/a/Sync"));
}

TEST_F(ContextMenu, TheFirstRootThatQualifiesEndsTheWalk) {
    setRoots({"/x", "/a", "/a/b"});
    select({"/a/b/c"});
    EXPECT_TRUE(menu().has_value());
    EXPECT_EQ(calls("rangeOfString: "), (Strings{"/a/b/c /x", "/a/b/c /a"}));
    EXPECT_EQ(calls("isEqualToString: "), Strings{"/a/b/c /a"});
}

TEST_F(ContextMenu, ThePathIsTracedInItsLiteralForm) {
    const auto traceOf = [this](const std::string& path) {
        select({path});
        (void)menu();
        return trace();
    };
    EXPECT_EQ(traceOf("\\\"'"), "path: Optional(\"\\\\\\\"\\'\")\n");
    EXPECT_EQ(traceOf(std::string("\0\t\n\r", 4)), "path: Optional(\"\\0\\t\\n\\r\")\n");
    EXPECT_EQ(traceOf("\x01\x0a\x0b\x1b\x1f\x7f"),
              "path: Optional(\"\\u{1}\\n\\u{B}\\u{1B}\\u{1F}\\u{7F}\")\n");
    EXPECT_EQ(traceOf("/caf\u00e9 e\u0301 \u0080 \u200b \U0001f517"),
              "path: Optional(\"/caf\u00e9 e\u0301 \u0080 \u200b \U0001f517\")\n");
    EXPECT_EQ(traceOf(""), "path: Optional(\"\")\n");
}

TEST_F(ContextMenuDeath, AListThatBecomesShorter) {
    auto& counting = startConnected<CountingFetches>();
    setRoots({"/x", "/y", "/z"});
    for (const int fetches : {1, 2}) { // the entry is the first behind the end, or a later one
        counting.fetches = 0;
        counting.shrinkAfter = fetches;
        expectFatal([&] { (void)isOfferedOn("/a"); },
                    "the root folders have changed during a menu request");
    }
}

TEST_F(ContextMenuDeath, ThePathIsLookedAtBeforeTheListIsFetchedAgain) {
    startConnected<TellingOfFetches>();
    setRoots({"/a"});
    script().selection = {makeURL("file:///x", std::nullopt)};
    EXPECT_EXIT(menu(), testing::KilledBySignal(SIGABRT),
                "print: path: nil\nprint: fetched\nfatal error");
}

TEST_F(ContextMenuDeath, NoSelectionForTheItemsMenu) {
    script().selection = std::nullopt;
    expectFatal([&] { (void)menu(); }, "there is no selection to show a menu for");
}

TEST_F(ContextMenuDeath, AnItemWithoutAPathOnceThereIsARootFolder) {
    setRoots({"/a"});
    script().selection = {makeURL("file:///x", std::nullopt)};
    EXPECT_EXIT(menu(), testing::KilledBySignal(SIGABRT),
                "print: path: nil\nfatal error: the selected URL has no path\n$");
}

} // namespace

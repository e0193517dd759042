// Menus, in every file manager.

#include "tests/file-managers/PluginTest.h"

namespace {

TEST_F(Plugin, OffersTheEntriesAndTellsWhatIsPicked) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    for (int menus = 0; menus < 2; ++menus)
        ASSERT_EQ(manager.menu({root + "/a%20b", root + "/c"}), Texts{FileManager::label});
    EXPECT_EQ(manager.icons(), Texts{findersync::iconPrefix + std::string("icon_URLlink")});
    manager.pickFirst();
    EXPECT_TRUE(extension.writes("action createLinkClicked: file:///sync/a%20b file:///sync/c"))
        << extension.output();
}

TEST_F(Plugin, AsksForNoMenuOfWhatIsNoFileOrOfNothing) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    ASSERT_TRUE(runUntil([&] { return extension.requestedBadges() == 1; }));
    const std::string before = extension.output();
    for (const std::string& url : FileManager::notFiles) {
        EXPECT_EQ(manager.menu({url}), Texts());
        EXPECT_EQ(manager.menu({root, url}), Texts());
    }
    EXPECT_EQ(manager.menu({}), Texts());
    runFor(milliseconds(50));
    EXPECT_EQ(extension.output(), before);
}

TEST_F(Plugin, GoesWithoutEntriesWhenTheExtensionIsSlowAndThenLeavesItAlone) {
    ExtensionProcess slow({"--delay", "1000", "/sync"});
    ASSERT_TRUE(knowsExtension());
    if (FileManager::hasBadges) // otherwise, the menu that found the extension has timed out
        labels = manager.menu({root});
    expectTimeout(labels);
    expectNothingAtOnce(manager.menu({root}));
}

TEST_F(Plugin, CutsATitleThatIsTooLongBetweenTwoCharacters) {
    const std::string accented = "e\u0301";
    std::string title(1020, 'x');
    for (int times = 0; times < 100; ++times)
        title += accented;
    ExtensionProcess extension({"--title", title, "/sync"});
    ASSERT_TRUE(knowsExtension());
    const Texts shown = manager.menu({root});
    ASSERT_EQ(shown.size(), 1U);
    std::string begin = shown.front();
    ASSERT_TRUE(begin.ends_with("…"));
    begin.resize(begin.size() - std::string("…").size());
    EXPECT_GE(begin.size(), 1020U);
    EXPECT_LT(begin.size(), 1030U);
    EXPECT_TRUE(begin.ends_with('x') || begin.ends_with(accented)) << begin.substr(1000);
}

TEST_F(Plugin, AsksAgainAfterAWhileWhenAMenuWasNonsense) {
    ExtensionProcess extension({"--nonsense", "/sync", "--then", "/sync"});
    ASSERT_TRUE(extension.writes("get directoryURLs"));
    EXPECT_TRUE(runUntil([&] {
        (void)manager.menu({root});
        return extension.timesWritten("menu " + root) == 1;
    }));
    expectNothingAtOnce(manager.menu({root}));
    extension.signal(SIGUSR1);
    EXPECT_TRUE(runUntil([&] { return manager.menu({root}).size() == 1; }));
    EXPECT_EQ(extension.timesWritten("menu " + root), 2);
}

TEST_F(Plugin, StartsAnExtensionThatHasEndedForWhatIsPicked) {
    for (int picks = 0; picks < 20; ++picks) {
        ExtensionProcess extension({"/sync"});
        ASSERT_TRUE(runUntil([&] { return manager.menu({root}).size() == 1; }));
        const ActivatableExtension installed(findersync::busName,
                                             FINDER_SYNC_SCRIPTED_EXTENSION " --once");
        extension.end();
        runFor(milliseconds(50)); // the bus knows
        manager.pickFirst();
        ASSERT_TRUE(runUntil([&] { return installed.starts() == 2; })) << "after " << picks;
    }
}

TEST_F(Plugin, WithoutAnExtensionThereIsNothingToWaitFor) {
    manager.show(root);
    expectNothingAtOnce(manager.menu({root}));
    runFor(milliseconds(50));
    expectNothingAtOnce(manager.menu({root}));
    EXPECT_EQ(manager.badges(root), Texts());
}

// Played by tests/faults, too, while calls fail, so no badge and no entry is demanded.
TEST_F(Plugin, OutlivesASessionAndKeepsNoFile) {
    ExtensionProcess extension({"/sync"});
    manager.show(root);
    const auto end = Clock::now() + milliseconds(300);
    (void)runUntil([&] {
        return !FileManager::hasBadges || !manager.badges(root).empty() || Clock::now() > end;
    });
    // Without badges, only a menu shows that the plug-in knows the extension.
    for (int menus = FileManager::hasBadges ? 1 : 15; menus > 0; --menus) {
        runFor(milliseconds(20));
        labels = manager.menu({root + "/a%20b"});
        EXPECT_LT(manager.menuTook(), milliseconds(500));
        if (labels.empty())
            continue;
        manager.pickFirst();
        break;
    }
    runFor(milliseconds(50));
    extension.end();
    runFor(milliseconds(50));
    EXPECT_EQ(manager.menu({root + "/a%20b"}), Texts());
    runFor(milliseconds(50));
    EXPECT_TRUE(manager.keepsNoFile());
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    runAheadOfOthers();
    session = std::make_unique<Session>();
    const Application application(argc, argv);
    const int result = RUN_ALL_TESTS();
    session.reset();
    return result;
}

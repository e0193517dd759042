// What only file managers do whose files are objects.

#include "tests/file-managers/PluginTest.h"

namespace {

TEST_F(Plugin, ReportsWhatTheFilesAreCalledWhenAnEntryIsPicked) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    const Texts files = {root + "/a", root + "/b", root + "/c", root + "/d"};
    ASSERT_EQ(manager.menu(files), Texts{FileManager::label});
    manager.rename(files[0], root + "/new");
    manager.rename(files[3], root + "/%ff");
    manager.deleteFile(files[1]);
    manager.forget(files[2]);
    manager.pickFirst();
    // Thunar does not tell that a file is gone.
    const std::string deleted = FileManager::hasBadges ? "" : files[1] + " ";
    EXPECT_TRUE(
        extension.writes("action createLinkClicked: " + root + "/new " + deleted + files[2]))
        << extension.output();
    (void)manager.menu({});
    EXPECT_TRUE(runUntil([&] { return manager.keepsNoFile(); }));
}

#if !defined(FM_THUNAR)
TEST_F(Plugin, ARenamedItemLosesItsBadgeOrGetsOne) {
    ExtensionProcess extension({"/sync", "/new"});
    ASSERT_TRUE(knowsExtension());
    manager.show(other);
    manager.rename(other, "file:///new");
    manager.show(other);
    EXPECT_TRUE(getsBadge(other));
    manager.rename(other, "file:///newer");
    manager.show(other);
    EXPECT_TRUE(losesBadge(other));
}

TEST_F(Plugin, AnItemThatIsRenamedWhileItIsAskedAboutIsAskedAboutAgain) {
    ExtensionProcess extension({"/sync", "/other"});
    ASSERT_TRUE(knowsExtension());
    extension.signal(SIGSTOP);
    manager.show(other);
    runFor(milliseconds(50));
    manager.rename(other, "file:///renamed");
    manager.show(other);
    extension.signal(SIGCONT);
    EXPECT_TRUE(runUntil([&] { return extension.requestedBadges() == 3; }));
    EXPECT_TRUE(losesBadge(other));
}

TEST_F(Plugin, StartsWhatEndsAtOnceLessAndLessThoughEachEndCausesAMenu) {
    const ActivatableExtension extension(findersync::busName,
                                         "timeout 0.8 " FINDER_SYNC_SCRIPTED_EXTENSION " /sync");
    const auto end = Clock::now() + milliseconds(2500);
    int notices = -1;
    EXPECT_TRUE(runUntil([&] {
        if (std::exchange(notices, manager.menuNotices()) != manager.menuNotices())
            (void)manager.menu({root});
        return extension.starts() >= 2 && Clock::now() > end;
    }));
    EXPECT_EQ(extension.starts(), 2) << "the third is due after three seconds";
}
#endif

} // namespace

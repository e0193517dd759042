// Badges, in every file manager that shows them.

#include "tests/file-managers/PluginTest.h"

#include <array>

namespace {

TEST_F(Plugin, BadgesARootFolderAndNothingElse) {
    ExtensionProcess extension({"/sync"});
    manager.show(root);
    manager.show(root + "/a");
    EXPECT_EQ(manager.badges(root), Texts()) << "nothing is known yet, and nothing waits";
    EXPECT_TRUE(getsBadge(root));
    EXPECT_EQ(manager.badges(root + "/a"), Texts());
    EXPECT_EQ(manager.changes(root + "/a"), 0);
}

TEST_F(Plugin, RequestsInBatches) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    for (int index = 0; index < 2500; ++index)
        manager.show(root + "/" + std::to_string(index) + "/sync");
    EXPECT_TRUE(extension.writes("badges 1\nbadges 1000\nbadges 1000\nbadges 500"))
        << extension.output();
    const std::string folder = root + "/" + std::string(3995, 'x');
    for (int index = 100; index < 700; ++index)
        manager.show(folder + std::to_string(index) + "/sync");
    EXPECT_TRUE(extension.writes("badges 261\nbadges 261\nbadges 78")) << extension.output();
}

TEST_F(Plugin, AnItemThatIsRefusedKeepsNoOtherWaiting) {
    ExtensionProcess extension(
        {"--refuse", root + "/bad", "/sync", "/other", "/x/a", "/x/b", "/x/bad"});
    for (const char* name : {"/a", "/bad", "/b", "/c", ""})
        manager.show(root + name);
    EXPECT_TRUE(getsBadge(root));
    runFor(milliseconds(200)); // the half with the bad item, too, has been refused
    const auto begin = Clock::now();
    manager.show(root + "/bad");
    manager.show(other);
    EXPECT_TRUE(getsBadge(other));
    EXPECT_LT(Clock::now() - begin, milliseconds(500));
}

TEST_F(Plugin, AsksOnlyAboutItemsThatAreCalledLikeARootFolder) {
    ExtensionProcess extension({"/sync", "--then", "/sync", "/sync/7", "/sync/e\u0301"});
    ASSERT_TRUE(knowsExtension());
    manager.show(root + "/%C3%A9");
    for (int index = 0; index < 10000; ++index)
        manager.show(root + "/" + std::to_string(index));
    runFor(milliseconds(300));
    EXPECT_EQ(extension.requestedBadges(), 1);
    extension.signal(SIGUSR1);
    EXPECT_TRUE(getsBadge(root + "/7"));
    EXPECT_EQ(extension.requestedBadges(), 1 + 2);
    manager.show(root + "/8/7");
    EXPECT_TRUE(runUntil([&] { return extension.requestedBadges() == 3 + 1; }));
    runFor(milliseconds(300));
    extension.signal(SIGUSR2);
    EXPECT_TRUE(losesBadge(root + "/7"));
    EXPECT_EQ(extension.requestedBadges(), 4 + 3);
}

TEST_F(Plugin, ReadsTheRootFoldersAnewWhenAnyMayHaveChanged) {
    ExtensionProcess extension({"--any", "/sync", "--then", "/other"});
    manager.show(other);
    manager.show(root + "/a");
    ASSERT_TRUE(knowsExtension());
    extension.signal(SIGUSR1);
    EXPECT_TRUE(getsBadge(other));
    EXPECT_TRUE(losesBadge(root));
    EXPECT_EQ(extension.requestedBadges(), 1 + 2);
}

TEST_F(Plugin, AsksAboutAllItemsWhenTheRootFoldersCannotBeHad) {
    ExtensionProcess extension({"--without-paths", "/sync"});
    manager.show(root + "/a");
    ASSERT_TRUE(knowsExtension());
    EXPECT_TRUE(runUntil([&] { return extension.requestedBadges() == 2; }));
}

TEST_F(Plugin, ActsOnTheFirstChangeAtOnceAndOnOthersFourTimesASecond) {
    ExtensionProcess extension({"/sync", "--then", "/other"});
    manager.show(other);
    ASSERT_TRUE(knowsExtension());
    runFor(milliseconds(300));
    auto begin = Clock::now();
    extension.signal(SIGUSR1);
    EXPECT_TRUE(getsBadge(other));
    EXPECT_LT(Clock::now() - begin, milliseconds(200));
    const auto counts = [&] {
        return std::array{extension.timesWritten("badges 2"), manager.changes(root),
                          manager.menuNotices()};
    };
    const auto before = counts();
    begin = Clock::now();
    for (int change = 0; change < 200; ++change) {
        extension.signal(change % 2 == 0 ? SIGUSR2 : SIGUSR1);
        runFor(milliseconds(5));
    }
    extension.signal(SIGUSR2);
    EXPECT_TRUE(getsBadge(root));
    EXPECT_TRUE(losesBadge(other));
    runFor(milliseconds(300));
    const auto most = 1 + (Clock::now() - begin) / milliseconds(250);
    for (std::size_t index = 0; index < before.size(); ++index)
        EXPECT_LE(counts()[index] - before[index], most) << "of count " << index;
}

TEST_F(Plugin, StartsWhatEndsLessAndLessButForAMenuAtOnce) {
    const ActivatableExtension extension;
    int shown = 0;
    const auto showUntil = [&](int starts) {
        EXPECT_TRUE(runUntil([&] {
            manager.show(root + "/" + std::to_string(++shown));
            return extension.starts() == starts;
        }));
        return Clock::now();
    };
    const auto begin = Clock::now();
    showUntil(1);
    const auto second = showUntil(2);
    EXPECT_GE(second - begin, milliseconds(1000));
    (void)runUntil([&] {
        manager.show(root + "/" + std::to_string(++shown));
        return Clock::now() > second + milliseconds(1500);
    });
    EXPECT_EQ(extension.starts(), 2);
    (void)manager.menu({root});
    EXPECT_TRUE(runUntil([&] { return extension.starts() == 3; }));
    EXPECT_LT(Clock::now() - second, milliseconds(1900));
}

TEST_F(Plugin, RequestsNoBadgeOfWhatIsNoFile) {
    ExtensionProcess extension({"/sync"});
    for (const std::string& url : FileManager::notFiles)
        manager.show(url);
    ASSERT_TRUE(knowsExtension());
    manager.show(root + "/a/sync");
    EXPECT_TRUE(runUntil([&] { return extension.requestedBadges() == 2; }));
    runFor(milliseconds(50));
    EXPECT_EQ(extension.requestedBadges(), 2) << extension.output();
}

TEST_F(Plugin, FindsWhatIsInAWatchedDirectoryHoweverItsAccentsAreWritten) {
    const std::string composed = "%C3%A9";
    const std::string decomposed = "e%CC%81";
    int folders = 0; // others each time: Dolphin does not tell what it no longer shows
    for (const auto& [watched, shown] :
         {std::pair(composed, decomposed), std::pair(decomposed, composed),
          std::pair(decomposed + "/", composed)}) {
        const std::string path = "/s" + std::to_string(++folders);
        const std::string item = "file://" + path + shown;
        ExtensionProcess extension({"--directory", "file:///x", "--directory",
                                    "file://" + path + watched, path + "\u00e9", path + "e\u0301",
                                    path + "\u00e9ance", path + "e"});
        manager.show("file://" + path + composed + "ance");
        manager.show("file://" + path + "e");
        manager.show(item);
        EXPECT_TRUE(getsBadge(item));
        EXPECT_EQ(extension.requestedBadges(), 1) << "of what is in the directory";
        extension.end();
        EXPECT_TRUE(losesBadge(item));
        manager.forget(item);
    }
}

TEST_F(Plugin, AsksTheNextExtensionWhatThePreviousOneLeftOpen) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    extension.signal(SIGSTOP);
    manager.show(other);
    runFor(milliseconds(50));
    extension.end();
    EXPECT_TRUE(losesBadge(root));
    ExtensionProcess again({"/sync", "/other"});
    EXPECT_TRUE(getsBadge(root));
    EXPECT_TRUE(getsBadge(other));
}

TEST_F(Plugin, FilesComeAndGoWhileTheExtensionHangs) {
    ExtensionProcess extension({"/sync", "/other"});
    ASSERT_TRUE(knowsExtension());
    extension.signal(SIGSTOP);
    for (int index = 0; index < 100; ++index) {
        manager.show(root + "/" + std::to_string(index));
        manager.forget(root + "/" + std::to_string(index));
    }
    runFor(milliseconds(50));
    const auto begin = Clock::now();
    manager.show(root + "/a");
    manager.show(other);
    EXPECT_LT(Clock::now() - begin, milliseconds(50));
    runFor(milliseconds(250));
    manager.forget(root + "/a");
    EXPECT_EQ(manager.badges(other), Texts());
    extension.signal(SIGCONT);
    EXPECT_TRUE(getsBadge(other));
}

} // namespace

// What only Dolphin does.

#include "tests/file-managers/PluginTest.h"

#include <thread>

namespace {

TEST_F(Plugin, IsForFilesAndFolders) {
    const QStringList types = FileManager::pluginOfKind("kfileitemaction").mimeTypes();
    EXPECT_TRUE(types.contains(QStringLiteral("application/octet-stream")));
    EXPECT_TRUE(types.contains(QStringLiteral("inode/directory")));
}

TEST_F(Plugin, RequestsTheBadgeOfAnItemOnce) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    manager.show(root);
    runFor(milliseconds(50));
    EXPECT_EQ(manager.badges(root), Texts{FileManager::badge});
    EXPECT_EQ(extension.requestedBadges(), 1);
}

TEST_F(Plugin, EncodesWhatAURLMayNotContain) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    const QUrl url = QUrl::fromLocalFile(QStringLiteral("/sync/[1] a?b#c%d\u00e9&+"));
    (void)manager.menu({url.toEncoded().toStdString()});
    EXPECT_TRUE(extension.writes("menu file:///sync/%5B1%5D%20a%3Fb%23c%25d%C3%A9&+"))
        << extension.output();
}

TEST_F(Plugin, KeepsBadgesAndABoundedNumberOfOtherItems) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    for (int index = 0; index < 30000; ++index)
        manager.show(root + "/" + std::to_string(index) + "/sync");
    EXPECT_TRUE(runUntil([&] { return extension.requestedBadges() >= 20000; }));
    extension.end();
    EXPECT_TRUE(losesBadge(root));
    ExtensionProcess again({"/sync"});
    EXPECT_TRUE(runUntil([&] { return again.requestedBadges() == 20000; }))
        << again.requestedBadges();
    runFor(milliseconds(100));
    EXPECT_EQ(again.requestedBadges(), 20000);
    EXPECT_TRUE(getsBadge(root)) << "it was shown first, and is not dropped";
}

TEST_F(Plugin, AnswersAnotherThreadInTheMainThread) {
    ExtensionProcess extension({"/sync", "/other"});
    ASSERT_TRUE(knowsExtension());
    std::thread([&] {
        manager.show(root);
        manager.show(other);
        labels = manager.menu({root});
    }).join();
    EXPECT_EQ(labels, Texts()) << "entries belong to a window, and so to the main thread";
    EXPECT_EQ(manager.badges(root), Texts());
    EXPECT_TRUE(getsBadge(root));
    EXPECT_TRUE(getsBadge(other));
}

TEST_F(Plugin, OffersEntriesWithoutIconsWhenThereIsNoTheme) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    const QStringList themes = QIcon::themeSearchPaths();
    QIcon::setThemeSearchPaths({});
    EXPECT_EQ(manager.menu({root}), Texts{FileManager::label});
    EXPECT_EQ(manager.icons(), Texts{""});
    QIcon::setThemeSearchPaths(themes);
}

TEST_F(Plugin, WaitsInTheFirstMenuButNoLongerForAHungBusThanForAHungExtension) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    manager.newMenuPlugin(); // its queries are not answered yet
    EXPECT_EQ(manager.menu({root}).size(), 1U);
    session->bus().signal(SIGSTOP);
    manager.newMenuPlugin();
    EXPECT_EQ(manager.menu({root}), Texts());
    EXPECT_GE(manager.menuTook(), FileManager::leastTimeout);
    expectNothingAtOnce(manager.menu({root}));
    session->bus().signal(SIGCONT);
    EXPECT_TRUE(runUntil([&] { return manager.menu({root}).size() == 1; })) << "it has answered";
}

TEST_F(Plugin, StartsTheExtensionOnceThePauseIsOver) {
    const ActivatableExtension extension;
    EXPECT_TRUE(runUntil([&] {
        manager.show(root);
        return extension.starts() == 1;
    }));
    manager.show(root);
    manager.show(root + "/a");
    runFor(milliseconds(500));
    EXPECT_EQ(extension.starts(), 1);
    EXPECT_TRUE(runUntil([&] { return extension.starts() == 2; })) << "later, and not never";
}

TEST_F(Plugin, LeavesAnExtensionThatHasEndedUntilSomethingIsShown) {
    ExtensionProcess process({"/sync"});
    ASSERT_TRUE(knowsExtension());
    const ActivatableExtension extension;
    process.end();
    EXPECT_TRUE(losesBadge(root));
    runFor(milliseconds(1200));
    EXPECT_EQ(extension.starts(), 0);
    manager.show(root);
    EXPECT_TRUE(runUntil([&] { return extension.starts() == 1; }));
}

} // namespace

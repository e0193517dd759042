// What only file managers do whose files are objects.

#include "tests/file-managers/PluginTest.h"

namespace {

TEST_F(Plugin, ReportsWhatTheFilesAreCalledWhenAnEntryIsPicked) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    ASSERT_TRUE(runUntil([&] { return manager.menu({root + "/a", root + "/b"}).size() == 1; }));
    manager.rename(root + "/a", root + "/new");
    manager.forget(root + "/b");
    manager.pickFirst();
    EXPECT_TRUE(extension.writes("action createLinkClicked: file:///sync/new file:///sync/b"))
        << extension.output();
    (void)manager.menu({});
    EXPECT_TRUE(runUntil([&] { return manager.keepsNoFile(); }));
}

#if defined(FM_THUNAR)
TEST_F(Plugin, OffersNothingOnTheLocationBar) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    const std::string folder = root + "/folder";
    manager.goTo(folder);
    EXPECT_EQ(manager.menu({folder + "/a"}), Texts{FileManager::label});
    EXPECT_EQ(manager.menu({folder + "/found/b"}), Texts{FileManager::label}) << "by a search";
    for (const std::string& button : {folder, root, root + "/folder2"})
        EXPECT_EQ(manager.menu({button}), Texts());
    EXPECT_EQ(manager.menu({folder + "/a", folder}), Texts());
}
#endif

} // namespace

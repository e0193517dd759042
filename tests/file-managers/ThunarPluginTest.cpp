// Thunar's plug-in without Thunar and without a display.

#include "tests/file-managers/LoadedThunarPlugin.h"

#include <memory>
#include <string>
#include <vector>

using namespace file_managers;

namespace {

using Labels = std::vector<std::string>;

class ThunarPlugin : public testing::Test {
protected:
    [[nodiscard]] Menu menu() const { return menuOf({file_.get()}); }

    /// Whether the plug-in comes to know that the extension is there, or is not.
    [[nodiscard]] bool getsEntries() const {
        return runUntil([this] { return !menu().labels().empty(); });
    }

    const Object<GObject> file_ = fileAt("file:///sync");
};

const Labels entries = {"Copy __link & go"};
constexpr milliseconds atOnce(60);

TEST_F(ThunarPlugin, StaysInMemory) {
    (void)providerType();
    EXPECT_TRUE(isResident);
}

TEST_F(ThunarPlugin, OffersTheEntriesAndTellsWhatIsPicked) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(getsEntries());
    const auto first = fileAt("file:///sync/a%20b");
    const auto second = fileAt("file:///sync/c");
    const Menu opened = menuOf({first.get(), second.get()});
    EXPECT_EQ(opened.labels(), entries);
    EXPECT_EQ(opened.icons(), Labels{FINDER_SYNC_GROUP ".icon_URLlink"});
    opened.pickFirst();
    const std::string action = "action createLinkClicked: file:///sync/a%20b file:///sync/c\n";
    EXPECT_TRUE(runUntil([&] { return extension.said().find(action) != std::string::npos; }))
        << extension.said();
}

TEST_F(ThunarPlugin, WaitsForAMenuATenthOfASecondAtTheMost) {
    ExtensionProcess slow({"--delay", "90", "/sync"});
    ASSERT_TRUE(getsEntries());
    const Menu opened = menu();
    EXPECT_EQ(opened.labels(), entries) << "within the time";
    EXPECT_GE(opened.took(), milliseconds(90));
}

TEST_F(ThunarPlugin, GoesWithoutEntriesWhenTheExtensionIsSlow) {
    ExtensionProcess slow({"--delay", "1000", "/sync"});
    std::unique_ptr<const Menu> opened;
    ASSERT_TRUE(runUntil([&] {
        opened.reset(new Menu(menu()));
        return opened->took() > atOnce;
    })) << "it is asked";
    EXPECT_EQ(opened->labels(), Labels());
    EXPECT_GE(opened->took(), milliseconds(99));
    EXPECT_LT(opened->took(), milliseconds(500));
}

TEST_F(ThunarPlugin, LeavesAHungExtensionAloneForFiveSeconds) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(getsEntries());
    extension.signal(SIGSTOP);
    const auto begin = Clock::now();
    const Menu hung = menu();
    EXPECT_EQ(hung.labels(), Labels());
    EXPECT_GE(hung.took(), milliseconds(99));
    EXPECT_LT(hung.took(), milliseconds(500));
    const Menu next = menu();
    EXPECT_EQ(next.labels(), Labels());
    EXPECT_LT(next.took(), atOnce);
    extension.signal(SIGCONT);
    EXPECT_TRUE(getsEntries());
    EXPECT_GE(Clock::now() - begin, milliseconds(5000));
}

TEST_F(ThunarPlugin, OffersTheEntriesAgainWhenTheExtensionIsBack) {
    auto extension = std::make_unique<ExtensionProcess>(Labels{"/sync"});
    ASSERT_TRUE(getsEntries());
    extension->end();
    const Menu without = menu();
    EXPECT_EQ(without.labels(), Labels());
    EXPECT_LT(without.took(), atOnce);
    extension = std::make_unique<ExtensionProcess>(Labels{"/sync"});
    EXPECT_TRUE(getsEntries());
}

// Played by tests/faults, too, while calls fail, so no entry is demanded.
TEST_F(ThunarPlugin, OutlivesASessionAndKeepsNoFile) {
    ExtensionProcess extension({"/sync"});
    const auto file = fileAt("file:///sync/a%20b");
    for (int menus = 0; menus < 15; ++menus) {
        runFor(milliseconds(20));
        const Menu opened = menuOf({file.get()});
        EXPECT_LT(opened.took(), milliseconds(500));
        if (opened.labels().empty())
            continue;
        opened.pickFirst();
        break;
    }
    runFor(milliseconds(50));
    extension.end();
    runFor(milliseconds(50));
    EXPECT_EQ(menuOf({file.get()}).labels(), Labels());
    EXPECT_EQ(file->ref_count, 1U);
}

TEST_F(ThunarPlugin, WithoutAnExtensionThereIsNothingToWaitFor) {
    runFor(milliseconds(50));
    const Menu opened = menu();
    EXPECT_EQ(opened.labels(), Labels());
    EXPECT_LT(opened.took(), atOnce);
}

} // namespace

int main(int argc, char** argv) {
    return runTestsOnBus(argc, argv);
}

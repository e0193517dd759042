// The plug-in of Caja, Nemo or GNOME Files without its file manager and without a display.

#include "tests/file-managers/LoadedProvider.h"

#include <csignal>
#include <memory>
#include <string>
#include <vector>

using namespace file_managers;

namespace {

class Plugin : public testing::Test, protected LoadedProvider {
protected:
    /// Whether the plug-in gives a file its badge, as the file manager finds when it is told to
    /// look.
    bool hasBadge(File* file) {
        showAnew(file);
        return file->emblems->contains(emblem);
    }
    /// Waits until the plug-in has asked about a file and shows its badge.
    bool getsBadge(File* file) {
        return runUntil([this, file] { return hasBadge(file); });
    }
    bool losesBadge(File* file) {
        return runUntil([this, file] { return !hasBadge(file); });
    }
};

TEST_F(Plugin, BadgesARootFolderAndNothingElse) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    const auto file = shown("file:///sync/a");
    EXPECT_TRUE(root->emblems->empty()) << "nothing is known yet, and nothing waits";
    EXPECT_TRUE(getsBadge(root.get()));
    EXPECT_TRUE(file->emblems->empty());
    EXPECT_EQ(*file->invalidations, 0);
}

TEST_F(Plugin, AsksInBatches) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    std::vector<Object<File>> files;
    for (int index = 0; index < 2500; ++index)
        files.push_back(shown("file:///sync/" + std::to_string(index)));
    EXPECT_TRUE(runUntil([&] { return extension.said().ends_with("badges 500\n"); }))
        << extension.said();
    EXPECT_NE(extension.said().find("badges 1000\nbadges 1000\nbadges 500\n"), std::string::npos)
        << extension.said();
}

TEST_F(Plugin, LeavesAloneWhatIsNoFileHere) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    const auto trash = shown("trash:///sync");
    const auto notText = shown("file:///sync/%ff");
    EXPECT_TRUE(getsBadge(root.get()));
    runFor(milliseconds(50));
    EXPECT_EQ(extension.said().find("badges 2"), std::string::npos) << extension.said();
    EXPECT_EQ(extension.said().find("badges 3"), std::string::npos) << extension.said();
}

TEST_F(Plugin, TakesTheBadgeAwayWhenTheExtensionEndsAndAsksAgainWhenItIsBack) {
    auto extension = std::make_unique<ExtensionProcess>(std::vector<std::string>{"/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    extension.reset();
    EXPECT_TRUE(losesBadge(root.get()));
    ExtensionProcess again({"/sync"});
    EXPECT_TRUE(getsBadge(root.get()));
}

TEST_F(Plugin, FilesMayGoWhileTheyAreAskedAbout) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    extension.signal(SIGSTOP);
    for (int index = 0; index < 100; ++index)
        (void)shown("file:///sync/" + std::to_string(index)); // gone at once
    runFor(milliseconds(50));
    {
        const auto file = shown("file:///other");
        runFor(milliseconds(50));
    }
    extension.signal(SIGCONT);
    EXPECT_TRUE(getsBadge(root.get()));
    runFor(milliseconds(50));
}

TEST_F(Plugin, AHungExtensionAnswersWhenItGoesOn) {
    ExtensionProcess extension({"/sync", "/other"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    extension.signal(SIGSTOP);
    const auto begin = Clock::now();
    const auto other = shown("file:///other");
    EXPECT_LT(Clock::now() - begin, milliseconds(60));
    runFor(milliseconds(300));
    EXPECT_TRUE(other->emblems->empty());
    extension.signal(SIGCONT);
    EXPECT_TRUE(getsBadge(other.get()));
}

TEST_F(Plugin, OffersTheEntriesAndTellsWhatIsPicked) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    const auto file = shown("file:///sync/a%20b");
    const Menu opened = menu({file.get()});
    EXPECT_EQ(opened.labels(), std::vector<std::string>{"Copy __link & go"});
    EXPECT_EQ(opened.icons(), std::vector<std::string>{FINDER_SYNC_GROUP ".icon_URLlink"});
    opened.pickFirst();
    const std::string action = "action createLinkClicked: file:///sync/a%20b\n";
    EXPECT_TRUE(runUntil([&] { return extension.said().find(action) != std::string::npos; }))
        << extension.said();
}

TEST_F(Plugin, WaitsForAMenuATenthOfASecondAtTheMost) {
    ExtensionProcess slow({"--delay", "90", "/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    const Menu opened = menu({root.get()});
    EXPECT_EQ(opened.labels().size(), 1U) << "within the time";
    EXPECT_GE(opened.took(), milliseconds(90));
}

TEST_F(Plugin, GoesWithoutEntriesWhenTheExtensionIsSlowAndThenLeavesItAlone) {
    ExtensionProcess slow({"--delay", "1000", "/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    const Menu first = menu({root.get()});
    EXPECT_EQ(first.labels(), std::vector<std::string>());
    EXPECT_GE(first.took(), milliseconds(99));
    EXPECT_LT(first.took(), milliseconds(500));
    const Menu second = menu({root.get()});
    EXPECT_EQ(second.labels(), std::vector<std::string>());
    EXPECT_LT(second.took(), milliseconds(60)) << "one such wait in five seconds";
}

// Played by tests/faults, too, while calls fail, so no badge and no entry is demanded.
TEST_F(Plugin, OutlivesASessionAndKeepsNoFile) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    const auto file = shown("file:///sync/a%20b");
    const auto end = Clock::now() + milliseconds(300);
    (void)runUntil([&] { return hasBadge(root.get()) || Clock::now() > end; });
    {
        const Menu opened = menu({file.get()});
        EXPECT_LT(opened.took(), milliseconds(500));
        if (!opened.labels().empty())
            opened.pickFirst();
    }
    runFor(milliseconds(50));
    extension.end();
    runFor(milliseconds(50));
    EXPECT_EQ(menu({file.get()}).labels(), std::vector<std::string>());
    EXPECT_EQ(G_OBJECT(root.get())->ref_count, 1U);
    EXPECT_EQ(G_OBJECT(file.get())->ref_count, 1U);
}

TEST_F(Plugin, WithoutAnExtensionThereIsNothingToWaitFor) {
    const auto file = shown("file:///sync");
    const Menu opened = menu({file.get()});
    EXPECT_EQ(opened.labels(), std::vector<std::string>());
    EXPECT_LT(opened.took(), milliseconds(60));
    runFor(milliseconds(50));
    EXPECT_TRUE(file->emblems->empty());
}

} // namespace

int main(int argc, char** argv) {
    return runTestsOnBus(argc, argv);
}

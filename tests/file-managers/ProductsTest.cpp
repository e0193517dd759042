// Several products at once, in every file manager.

#include "file-managers/Limits.h"
#include "tests/file-managers/PluginTest.h"

#include <algorithm>

namespace {

const std::string first = "a.first.FinderSync";
const std::string last = "z.last.FinderSync";

std::string prefixOf(const std::string& busName) {
    return busName.substr(0, busName.size() - std::string("FinderSync").size());
}

std::string badgeOf(const std::string& busName) {
    return "emblem-" + prefixOf(busName) + "FolderIco";
}

Texts entriesOf(const Texts& busNames) {
    Texts icons;
    for (const std::string& name : busNames)
        icons.push_back(prefixOf(name) + "icon_URLlink");
    return icons;
}

class Products : public Plugin {
protected:
    /// Whether the item gets the badges of these products, and no others.
    bool getsBadges(const std::string& url, Texts busNames) {
        if constexpr (!FileManager::hasBadges)
            return true;
        std::ranges::transform(busNames, busNames.begin(), badgeOf);
        return runUntil([&] { return manager.badges(url) == busNames; });
    }

    /// Whether a menu has the entries of these products, in this order, and no others.
    bool offers(const Texts& busNames) {
        (void)manager.menu({root + "/a"});
        return manager.icons() == entriesOf(busNames);
    }
    bool getsEntries(const Texts& busNames) {
        return runUntil([&] { return offers(busNames); });
    }

    /// Whether a menu asks so many products of one process, in time or not. Those that were late
    /// have got the request after the pause, and are asked again.
    bool asks(ExtensionProcess& process, int products) {
        return runUntil([&] {
            const std::string url = root + "/" + std::to_string(++menus);
            (void)manager.menu({url});
            if (manager.menuTook() >= FileManager::leastTimeout)
                runFor(file_managers::menuBackoff);
            return process.timesWritten("menu " + url) == products;
        });
    }

    int menus = 0;
};

TEST_F(Products, ShowTheBadgesAndTheEntriesOfAll) {
    ExtensionProcess afterwards({"--name", last, "/sync", "/other"});
    ExtensionProcess between({"/sync"});
    manager.show(root);
    manager.show(other);
    EXPECT_TRUE(getsBadges(other, {last}));
    ExtensionProcess before({"--name", first, "/sync"});
    EXPECT_TRUE(getsBadges(root, {first, findersync::busName, last}));
    EXPECT_TRUE(getsEntries({first, findersync::busName, last}));
    manager.pickFirst();
    EXPECT_TRUE(before.writes("action createLinkClicked: file:///sync/a")) << before.output();
    between.end();
    EXPECT_TRUE(getsBadges(root, {first, last}));
    EXPECT_TRUE(getsEntries({first, last}));
    EXPECT_EQ(between.output().find("action"), std::string::npos) << "it was another's entry";
    EXPECT_EQ(afterwards.output().find("action"), std::string::npos);
}

#if !defined(FM_THUNAR) // it has no badges
TEST_F(Products, AreAskedAboutAnItemOnceWhateverTheOthersAnswer) {
    ExtensionProcess before({"--name", first, "/sync"});
    ExtensionProcess afterwards({"--name", last, "/sync", "--then", "/other"});
    manager.show(root);
    ASSERT_TRUE(getsBadges(root, {first, last}));
    afterwards.signal(SIGUSR1);
    ASSERT_TRUE(getsBadges(root, {first}));
    runFor(milliseconds(50));
    EXPECT_EQ(before.requestedBadges(), 1);
}
#endif

TEST_F(Products, CostEachOtherNothingWhenOneHangsAndOneAnswersNonsense) {
    ExtensionProcess nonsense({"--name", first, "--nonsense", "/sync"});
    ExtensionProcess good({"/sync"});
    ExtensionProcess hung({"--name", last, "/sync"});
    manager.show(root);
    manager.show(root + "/a/sync");
    ASSERT_TRUE(getsBadges(root, {findersync::busName, last}));
    ASSERT_TRUE(getsEntries({findersync::busName, last}));
    hung.signal(SIGSTOP);
    manager.show(root + "/b/sync");
    EXPECT_TRUE(offers({findersync::busName})) << "the others wait with it, and have answered";
    EXPECT_GE(manager.menuTook(), FileManager::leastTimeout);
    EXPECT_LT(manager.menuTook(), FileManager::mostTimeout);
    EXPECT_TRUE(offers({findersync::busName}));
    EXPECT_LT(manager.menuTook(), atOnce);
    manager.show(root + "/c/sync");
    EXPECT_TRUE(runUntil([&] { return !FileManager::hasBadges || good.requestedBadges() == 4; }));
    hung.end();
    EXPECT_TRUE(getsBadges(root, {findersync::busName}));
}

TEST_F(Products, WaitTogetherNoLongerThanOne) {
    const ExtensionProcess slow({"--name", first, "--delay", "80", "/sync"});
    const ExtensionProcess other({"--name", last, "--delay", "80", "/sync"});
    manager.show(root);
    ASSERT_TRUE(getsBadges(root, {first, last}));
    EXPECT_TRUE(getsEntries({first, last}));
    EXPECT_LT(manager.menuTook(), milliseconds(150));
}

TEST_F(Products, AreAskedLessAndLessWithoutTheInterface) {
    ExtensionProcess none({"--name", first, "--without-interface"});
    const auto calls = [&] { return none.timesWritten("call"); };
    ASSERT_TRUE(runUntil([&] { return calls() == FileManager::plugins; }));
    const auto begin = Clock::now();
    ExtensionProcess good({"/sync"});
    manager.show(root);
    ASSERT_TRUE(getsBadges(root, {findersync::busName}));
    ASSERT_TRUE(getsEntries({findersync::busName}));
    EXPECT_EQ(calls(), FileManager::plugins) << "it has said that it has no properties";
    ASSERT_TRUE(runUntil([&] { return calls() == 2 * FileManager::plugins; }));
    EXPECT_GE(Clock::now() - begin, milliseconds(900));
    runFor(milliseconds(1300));
    EXPECT_EQ(calls(), 2 * FileManager::plugins);
}

TEST_F(Products, AreABoundedNumberOfWhichTheInstalledGoFirst) {
    Texts arguments = {"/sync"};
    Texts names;
    for (int index = 10; index < 50; ++index) {
        names.push_back("y.x" + std::to_string(index) + ".FinderSync");
        arguments.insert(arguments.end(), {"--name", names.back()});
    }
    ExtensionProcess greedy(arguments);
    manager.show(root);
    EXPECT_TRUE(runUntil(
        [&] { return greedy.timesWritten("get directoryURLs") == 32 * FileManager::plugins; }));
    EXPECT_TRUE(asks(greedy, 32));
    const ActivatableExtension installed(last);
    EXPECT_TRUE(asks(greedy, 31));
    EXPECT_TRUE(runUntil([&] { return installed.starts() >= 1; }));
    ExtensionProcess waiting({"/sync"});
    runFor(milliseconds(50));
    greedy.end();
    EXPECT_TRUE(asks(waiting, 1)) << "there is a place for it now";
}

} // namespace

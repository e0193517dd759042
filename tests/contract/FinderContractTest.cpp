// URLs, images, the Finder's controller, the log, standard output and the end of the process.

#include "platform/AppKit.h"
#include "platform/FinderSync.h"
#include "platform/System.h"
#include "tests/contract/Surroundings.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using URLContract = contract::ContractTest;

TEST_F(URLContract, APathIsTakenAsItStands) {
    for (const auto& [path, description] : std::map<std::string, std::string>{
             {"/Users/u/Sync Folder", "file:///Users/u/Sync%20Folder"},
             {"/no/such/../path/.", "file:///no/such/../path/."},
             {"/caf\u00e9", "file:///caf%C3%A9"},
             {"/cafe\u0301", "file:///cafe%CC%81"},
             {"/", "file:///"},
         }) {
        const auto url = platform::fileURLWithPath(path);
        EXPECT_EQ(url->path(), path);
        EXPECT_EQ(url->description(), description);
        ASSERT_TRUE(url->filePathURL());
        EXPECT_EQ(url->filePathURL()->path(), path);
        EXPECT_EQ(url->filePathURL()->description(), description);
    }
}

TEST_F(URLContract, APathBecomesAbsoluteAndEndsWithoutASlash) {
    EXPECT_EQ(platform::fileURLWithPath("/a/b/")->path(), "/a/b"); // the root has one, see above
    EXPECT_TRUE(platform::fileURLWithPath("a/b")->path()->ends_with("/a/b"));
    EXPECT_TRUE(platform::fileURLWithPath("a/b")->path()->starts_with("/"));
    EXPECT_TRUE(platform::fileURLWithPath("")->path()->starts_with("/"));
}

using ImageContract = contract::ContractTest;

TEST_F(ImageContract, TheExtensionsImagesAreThere) {
    for (const char* name : {"icon_Folder", "icon_share", "icon_URLlink", "icon_Backup"})
        EXPECT_TRUE(platform::imageNamed(name)) << name;
}

TEST_F(ImageContract, OtherNamesGiveNone) {
    for (const char* name : {"icon_folder", "icon_Nothing", "", ".", "../icon_Folder"})
        EXPECT_EQ(platform::imageNamed(name), nullptr) << name;
}

TEST(BundleContract, ItsPathIsAbsolute) {
    EXPECT_TRUE(platform::mainBundlePath().starts_with("/"));
}

using ControllerContract = contract::ContractTest;

TEST_F(ControllerContract, DirectoryURLsAreASetThatIsReplaced) {
    EXPECT_EQ(&platform::defaultController(), &platform::defaultController());
    const auto url = [](const char* path) { return platform::fileURLWithPath(path); };
    platform::defaultController().setDirectoryURLs({url("/a"), url("/b"), url("/a")});
    EXPECT_EQ(contract::watchedPaths(), (std::vector<std::string>{"/a", "/b"}));
    platform::defaultController().setDirectoryURLs({url("/c")});
    EXPECT_EQ(contract::watchedPaths(), (std::vector<std::string>{"/c"}));
    platform::defaultController().setDirectoryURLs({});
    EXPECT_TRUE(contract::watchedPaths().empty());
}

TEST_F(ControllerContract, ABadgeIsRegisteredUnderItsIdentifier) {
    auto& controller = platform::defaultController();
    controller.setBadgeImage(platform::imageNamed("icon_Folder"), "Folder Icon", "FolderIco");
    controller.setBadgeImage(platform::imageNamed("icon_share"), "Shared", "Other");
    controller.setBadgeImage(platform::imageNamed("icon_share"), "Shared Icon", "Other");
    EXPECT_EQ(contract::badgeLabels(),
              (std::map<std::string, std::string>{{"FolderIco", "Folder Icon"},
                                                  {"Other", "Shared Icon"}}));
}

TEST_F(ControllerContract, ABadgeIsAssignedToAnItem) {
    EXPECT_TRUE(contract::assignedBadges().empty());
    platform::defaultController().setBadgeIdentifier("FolderIco", *platform::fileURLWithPath("/a"));
    EXPECT_EQ(contract::assignedBadges(), std::vector<std::string>{"FolderIco"});
}

TEST_F(ControllerContract, TheSelectionIsTheFindersAndCanBeAbsent) {
    EXPECT_EQ(platform::defaultController().selectedItemURLs(), std::nullopt);
    contract::select({{"/b", "/a", "/b", "/c"}});
    const auto selection = platform::defaultController().selectedItemURLs();
    ASSERT_TRUE(selection.has_value());
    std::vector<std::string> paths;
    for (const auto& url : *selection)
        paths.push_back(url->path().value_or(""));
    EXPECT_EQ(paths, (std::vector<std::string>{"/b", "/a", "/b", "/c"}));
    contract::select(std::vector<std::string>());
    EXPECT_TRUE(platform::defaultController().selectedItemURLs()->empty());
    contract::select(std::nullopt);
    EXPECT_EQ(platform::defaultController().selectedItemURLs(), std::nullopt);
}

using MenuContract = contract::ContractTest;

TEST_F(MenuContract, AMenuHoldsItsEntriesInOrder) {
    const auto menu = platform::menuWithTitle("");
    ASSERT_TRUE(menu);
    EXPECT_TRUE(contract::entriesOf(*menu).empty());
    const auto link = platform::menuItemWithTitle("L\u00e4nk", "createLinkClicked:", "");
    link->setImage(platform::imageNamed("icon_URLlink"));
    const auto plain = platform::menuItemWithTitle("", "backupClicked:", "");
    const auto bared = platform::menuItemWithTitle("Bared", "syncedClicked:", "");
    bared->setImage(platform::imageNamed("icon_share"));
    bared->setImage(nullptr);
    menu->addItem(link);
    menu->addItem(plain);
    menu->addItem(bared);
    EXPECT_EQ(contract::entriesOf(*menu), (std::vector<std::array<std::string, 3>>{
                                              {"L\u00e4nk", "createLinkClicked:", "icon_URLlink"},
                                              {"", "backupClicked:", ""},
                                              {"Bared", "syncedClicked:", ""}}));
}

using LogContract = contract::ContractTest;

TEST_F(LogContract, TheArgumentTakesThePlaceInTheFormat) {
    platform::NSLog("curpath: %@", "/Users/u");
    platform::NSLog("path: %@", "100%@ %s %n");
    EXPECT_EQ(contract::logged(),
              (std::vector<std::string>{"curpath: /Users/u", "path: 100%@ %s %n"}));
}

using OutputContract = contract::ContractTest;

TEST_F(OutputContract, LinesArriveInOrderEachWithALineFeed) {
    platform::print("connecting...");
    platform::print("");
    platform::print("two\nlines");
    platform::print(std::string("a\0b", 3));
    EXPECT_EQ(contract::printed(), std::string("connecting...\n\ntwo\nlines\na\0b\n", 29));
}

TEST_F(OutputContract, NothingIsLostHoweverMuchIsPrinted) {
    std::string expected;
    for (int line = 0; line < 5000; ++line) {
        const std::string text = std::to_string(line) + std::string(100, '.');
        platform::print(text);
        expected += text + "\n";
    }
    EXPECT_EQ(contract::printed(), expected);
}

TEST(ErrorContract, ANumberIsPutIntoWords) {
    EXPECT_STREQ(platform::strerror(EACCES), "Permission denied"); // whatever the last error was
}

TEST(MemoryContract, BuffersOfEverySizeAreGiven) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{1024}}) {
        void* const buffer = platform::malloc(size);
        ASSERT_NE(buffer, nullptr) << size;
        std::memset(buffer, '?', size);
        std::free(buffer);
    }
}

using FatalErrorContract = contract::ContractTest;

TEST_F(FatalErrorContract, TheReasonIsOneLine) {
    EXPECT_EXIT(platform::fatalError("one\ntwo"), testing::KilledBySignal(SIGABRT),
                "fatal error: one[^\n]*two\n$");
}

} // namespace

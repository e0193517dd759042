#include "Names.h"
#include "tests/RecordingTest.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <limits>
#include <utility>

using platform::Object;
using tests::script;
using tests::Strings;
using tests::world;

namespace {

Object text(std::string value) {
    return {std::move(value)};
}

Object number(std::int64_t value) {
    return {value};
}

class StartUp : public tests::RecordingTest {
protected:
    /// Starts with one setting.
    findersync::FinderSync& startWith(const std::string& key, Object value) {
        script().settings = {{key, std::move(value)}};
        return start();
    }
};

class StartUpDeath : public StartUp {
protected:
    void expectDeath(const std::string& output) {
        EXPECT_EXIT(start(), testing::KilledBySignal(SIGABRT), output);
    }
};

TEST_F(StartUp, AnEmptySuiteLeavesTheInitialValues) {
    const auto& started = start();
    EXPECT_EQ(started.myFolderURL()->description(), "file:///");
    EXPECT_TRUE(started.pathsOfRootFolders().empty());
    EXPECT_EQ(started.serverAddress(), "127.0.0.1");
    EXPECT_EQ(started.serverPort(), 61842U);
    EXPECT_TRUE(started.isSocketConnected());
    EXPECT_EQ(started.displayUrlLink(), 1);
    EXPECT_EQ(started.displayBackup(), 0);
    EXPECT_EQ(started.shareContactTitle(), "");
    EXPECT_EQ(started.shareViaUrlTitle(), "");
    EXPECT_EQ(started.backupTitle(), "");
}

TEST_F(StartUp, MakesItsCallsInTheExactOrder) {
    start();
    EXPECT_EQ(calls(), (Strings{
                           "fileURLWithPath: /",
                           "FIFinderSync init",
                           std::string("initWithSuiteName: ") + findersync::applicationGroup,
                           "objectForKey: RootFolder",
                           "objectForKey: ServerPort",
                           "objectForKey: DisplayUrlLink",
                           "objectForKey: DisplayBackup",
                           "objectForKey: ShareContactTitle",
                           "objectForKey: ShareViaUrlTitle",
                           "objectForKey: BackupTitle",
                           "fileURLWithPath: /",
                           "NSURL released: file:///",
                           "NSUserDefaults released",
                           "bundlePath",
                           "NSLog: FinderSync() launched from %@ <- /Extensions/FinderSync.appex",
                           "defaultController",
                           "setDirectoryURLs: file:///",
                           "imageNamed: icon_Folder",
                           "defaultController",
                           "setBadgeImage:label:forBadgeIdentifier: Folder Icon, FolderIco",
                           "print: connecting...",
                           "CFStreamCreatePairWithSocketToHost: 127.0.0.1 61842",
                           "inputStream setDelegate:",
                           "outputStream setDelegate:",
                           "currentRunLoop",
                           "inputStream scheduleInRunLoop:forMode: kCFRunLoopDefaultMode",
                           "currentRunLoop",
                           "outputStream scheduleInRunLoop:forMode: kCFRunLoopDefaultMode",
                           "inputStream open",
                           "outputStream open",
                       }));
}

TEST_F(StartUp, EveryKeyIsReadInOrderAndConvertedAfterwards) {
    script().settings = {
        {"RootFolder", text("/Users/u/Sync")}, {"ServerPort", number(5000)},
        {"DisplayUrlLink", number(0)},         {"DisplayBackup", number(1)},
        {"ShareContactTitle", text("Share")},  {"ShareViaUrlTitle", text("Link")},
        {"BackupTitle", text("Back up")},
    };
    const auto& started = start();
    EXPECT_EQ(started.myFolderURL()->path(), "/Users/u/Sync");
    EXPECT_EQ(started.serverPort(), 5000U);
    EXPECT_EQ(started.displayUrlLink(), 0);
    EXPECT_EQ(started.displayBackup(), 1);
    EXPECT_EQ(started.shareContactTitle(), "Share");
    EXPECT_EQ(started.shareViaUrlTitle(), "Link");
    EXPECT_EQ(started.backupTitle(), "Back up");

    const Strings all = calls();
    const auto first = std::ranges::find(all, "objectForKey: RootFolder");
    ASSERT_NE(first, all.end());
    EXPECT_EQ(Strings(first, first + 11),
              (Strings{"objectForKey: RootFolder", "objectForKey: ServerPort",
                       "integerForKey: ServerPort", "objectForKey: DisplayUrlLink",
                       "integerForKey: DisplayUrlLink", "objectForKey: DisplayBackup",
                       "integerForKey: DisplayBackup", "objectForKey: ShareContactTitle",
                       "objectForKey: ShareViaUrlTitle", "objectForKey: BackupTitle",
                       "fileURLWithPath: /Users/u/Sync"}));
}

TEST_F(StartUp, EveryPortOfThirtyTwoBitsIsPassedOn) {
    for (const std::uint32_t port : {0U, 70000U, 4294967295U}) {
        EXPECT_EQ(startWith("ServerPort", number(port)).serverPort(), port);
        EXPECT_EQ(calls("CFStreamCreatePairWithSocketToHost: ").back(),
                  "127.0.0.1 " + std::to_string(port));
    }
}

TEST_F(StartUp, WithoutABaseObjectThereIsNoneAndNothingIsStarted) {
    script().baseObject = false;
    findersync::FinderSync object;
    EXPECT_EQ(object.init(), nullptr);
    EXPECT_EQ(calls(), (Strings{"fileURLWithPath: /", "FIFinderSync init"}));
}

TEST_F(StartUp, OwnedFieldsAreReleasedInDeclaredOrderAndTheStreamsAreNotClosedBefore) {
    startWith("RootFolder", text("/Users/u"));
    // The controller holds the watched URL as well; without it the object's reference is the last.
    world().directoryURLs.clear();
    forgetCalls();
    extension.reset();
    EXPECT_EQ(calls(), (Strings{"NSURL released: file:///Users/u", "inputStream released",
                                "outputStream released"}));
}

TEST_F(StartUpDeath, ASuiteThatCannotBeOpened) {
    script().suiteOpens = false;
    script().suiteFailure = "no such group";
    expectDeath("^fatal error: the shared settings cannot be opened: no such group\n$");
    script().suiteFailure = "";
    expectDeath("^fatal error: the shared settings cannot be opened\n$");
}

TEST_F(StartUpDeath, APortOutsideThirtyTwoBits) {
    using Limits = std::numeric_limits<std::int64_t>;
    for (const auto port :
         {std::int64_t{-1}, std::int64_t{1} << 32, Limits::min(), Limits::max()}) {
        script().settings = {{"ServerPort", number(port)}};
        expectDeath("^fatal error: the setting \"ServerPort\" is out of range: " +
                    std::to_string(port) + "\n$");
    }
}

TEST_F(StartUpDeath, ThePortIsJudgedAfterAllKeysHaveBeenRead) {
    script().settings = {{"ServerPort", number(-1)}, {"BackupTitle", number(5)}};
    expectDeath("^fatal error: the setting \"BackupTitle\" is not a string\n$");
}

TEST_F(StartUpDeath, AMissingBadgeImage) {
    script().images.erase("icon_Folder");
    expectDeath("\nfatal error: the image \"icon_Folder\" is missing from the resources\n$");
}

TEST_F(StartUpDeath, AMissingStreamOfWhichTheReadStreamIsLookedAtFirst) {
    script().writeStream = false;
    expectDeath("print: connecting...\nfatal error: no write stream to the companion");
    script().readStream = false;
    expectDeath("print: connecting...\nfatal error: no read stream to the companion");
    script().writeStream = true;
    expectDeath("print: connecting...\nfatal error: no read stream to the companion");
}

} // namespace

#include "tests/RecordingTest.h"

#include <csignal>

using platform::recording::makeURL;
using tests::Strings;

namespace {

class Observation : public tests::RecordingTest {};
class ObservationDeath : public Observation {};

TEST_F(Observation, BeginningIsLoggedOnceWithTheFilePathURL) {
    auto& started = startConnected();
    started.beginObservingDirectoryAtURL(*makeURL("file:///Users/u/", "/Users/u"));
    EXPECT_EQ(calls("NSLog: "), Strings{"beginObservingDirectoryAtURL: %@ <- file:///Users/u/"});
    EXPECT_EQ(calls("filePathURL: "), Strings{"file:///Users/u/"});
}

TEST_F(Observation, EndingIsLoggedOnceWithTheFilePathURL) {
    auto& started = startConnected();
    started.endObservingDirectoryAtURL(*makeURL("file:///Users/u/", "/Users/u"));
    EXPECT_EQ(calls("NSLog: "), Strings{"endObservingDirectoryAtURL: %@ <- file:///Users/u/"});
}

TEST_F(Observation, NothingChangesAndNothingElseIsCalled) {
    auto& started = startConnected();
    receive("{\"type\":\"add_folder\",\"path\":\"/a\"}\n");
    firstCall = platform::recording::calls().size();
    const auto url = makeURL("file:///a", "/a");
    started.beginObservingDirectoryAtURL(*url);
    started.endObservingDirectoryAtURL(*url);
    EXPECT_EQ(calls(), (Strings{"filePathURL: file:///a", "NSURL released: file:///a",
                                "NSLog: beginObservingDirectoryAtURL: %@ <- file:///a",
                                "filePathURL: file:///a", "NSURL released: file:///a",
                                "NSLog: endObservingDirectoryAtURL: %@ <- file:///a"}));
    EXPECT_EQ(started.pathsOfRootFolders(), Strings{"/a"});
    EXPECT_TRUE(started.isSocketConnected());
}

TEST_F(ObservationDeath, AURLWithoutAFilePath) {
    auto& started = start();
    const auto url = makeURL("https://example.com/", "/", false);
    EXPECT_EXIT(started.beginObservingDirectoryAtURL(*url), testing::KilledBySignal(SIGABRT),
                "fatal error: a URL has no file path: https://example.com/\n$");
    EXPECT_EXIT(started.endObservingDirectoryAtURL(*url), testing::KilledBySignal(SIGABRT),
                "fatal error: a URL has no file path: https://example.com/\n$");
}

} // namespace

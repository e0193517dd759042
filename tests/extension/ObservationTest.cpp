#include "tests/RecordingTest.h"

#include <csignal>

using platform::recording::makeURL;
using tests::Strings;

namespace {

/// A reference to a file by its number, as the Finder may pass it on.
class FileReference : public platform::NSURL {
public:
    [[nodiscard]] std::shared_ptr<const NSURL> filePathURL() const override {
        return makeURL("file:///Users/u/", "/Users/u");
    }
    [[nodiscard]] std::optional<std::string> path() const override { return "/Users/u"; }
    [[nodiscard]] std::string description() const override { return "file:///.file/id=1"; }
};

class Observation : public tests::RecordingTest {};
class ObservationDeath : public Observation {};

TEST_F(Observation, BeginningIsLoggedOnceWithTheFilePathURL) {
    auto& started = startConnected();
    started.beginObservingDirectoryAtURL(*makeURL("file:///Users/u/", "/Users/u"));
    EXPECT_EQ(calls("NSLog: "), Strings{"beginObservingDirectoryAtURL: %@ <- file:///Users/u/"});
    EXPECT_EQ(calls("filePathURL: "), Strings{"file:///Users/u/"});
}

TEST_F(Observation, AReferenceIsLoggedAsThePathThatItStandsFor) {
    auto& started = startConnected();
    started.beginObservingDirectoryAtURL(FileReference());
    EXPECT_EQ(calls("NSLog: "), Strings{"beginObservingDirectoryAtURL: %@ <- file:///Users/u/"});
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

#include "tests/RecordingTest.h"

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

class Observation : public tests::RecordingTest {
protected:
    Observation() { startConnected(); }
};

TEST_F(Observation, AReferenceIsLoggedAsThePathThatItStandsFor) {
    extension->beginObservingDirectoryAtURL(FileReference());
    EXPECT_EQ(calls("NSLog: "), Strings{"beginObservingDirectoryAtURL: %@ <- file:///Users/u/"});
}

TEST_F(Observation, NothingChangesAndNothingElseIsCalled) {
    receive("{\"type\":\"add_folder\",\"path\":\"/a\"}\n");
    forgetCalls();
    const auto url = makeURL("file:///a", "/a");
    extension->beginObservingDirectoryAtURL(*url);
    extension->endObservingDirectoryAtURL(*url);
    EXPECT_EQ(calls(), (Strings{"filePathURL: file:///a", "NSURL released: file:///a",
                                "NSLog: beginObservingDirectoryAtURL: %@ <- file:///a",
                                "filePathURL: file:///a", "NSURL released: file:///a",
                                "NSLog: endObservingDirectoryAtURL: %@ <- file:///a"}));
    EXPECT_EQ(extension->pathsOfRootFolders(), Strings{"/a"});
    EXPECT_TRUE(extension->isSocketConnected());
}

} // namespace

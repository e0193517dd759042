#include "tests/RecordingTest.h"

using findersync::FinderSync;
using tests::script;
using tests::Strings;
using tests::world;

namespace {

class ClickReports : public tests::RecordingTest {
protected:
    ClickReports() { startConnected(); }
};

class ClickReportsDeath : public ClickReports {};

TEST_F(ClickReports, TheCallsAreMadeInTheExactOrder) {
    select({"/a", "/b"});
    forgetCalls();
    extension->sendClickedData("t");
    const std::string text = R"({"items":["/a","/b"],"type":"t"})";
    EXPECT_EQ(
        calls(),
        (Strings{"defaultController", "selectedItemURLs", "path: file:///a", "path: file:///b",
                 "isValidJSONObject:", "dataWithJSONObject:options:error: 0",
                 "initWithData:encoding: " + text, "dataUsingEncoding: " + text,
                 "outputStream write:maxLength: " + text + " -> " + std::to_string(text.size())}));
}

TEST_F(ClickReports, AReportThatCannotBeWrittenAsJSONIsAWriteOfNothing) {
    select({"/a"});
    for (const int failure : {0, 1, 2}) {
        script().validJSON = failure != 0;
        script().writesJSON = failure != 1;
        script().writtenJSON = platform::NSData{.bytes = {0xff}};
        forgetCalls();
        extension->sendClickedData("clicked_backup");
        EXPECT_EQ(calls("outputStream write"), Strings{":maxLength:  -> 0"}) << failure;
    }
    EXPECT_EQ(world().received, "");
}

TEST_F(ClickReportsDeath, NoSelection) {
    script().selection = std::nullopt;
    expectFatal([&] { extension->sendClickedData("t"); }, "there is no selection to report");
}

TEST_F(ClickReportsDeath, TheTextIsEncodedBeforeTheStreamIsLookedFor) {
    select({"/a"});
    script().encoding = false;
    FinderSync unconnected;
    expectFatal([&] { unconnected.sendClickedData("t"); }, "a click report cannot be encoded");
}

TEST_F(ClickReportsDeath, NoOutputStreamYet) {
    select({"/a"});
    FinderSync unconnected;
    expectFatal([&] { unconnected.sendClickedData("t"); },
                "there is no output stream to report to");
    unconnected.setIsSocketConnected(false);
    expectFatal([&] { unconnected.sendClickedData("t"); },
                "there is no output stream to report to");
}

} // namespace

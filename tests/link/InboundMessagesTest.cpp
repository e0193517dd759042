#include "tests/RecordingTest.h"
#include "tests/WatchedFetches.h"

#include <algorithm>
#include <csignal>
#include <string>
#include <string_view>

using findersync::FinderSync;
using platform::NSStreamEvent;
using tests::script;
using tests::Strings;

namespace {

std::string addFolder(const std::string& path) {
    return R"({"type":"add_folder","path":")" + path + "\"}";
}

std::string deleteFolder(const std::string& path) {
    return R"({"type":"del_folder","path":")" + path + "\"}";
}

/// A message of exactly `size` bytes, made longer by a key that nobody reads.
std::string messageOfSize(std::size_t size) {
    const std::string start = R"({"type":"add_folder","path":"/long","filler":")";
    return start + std::string(size - start.size() - 2, 'x') + "\"}";
}

class InboundMessages : public tests::RecordingTest {
protected:
    InboundMessages() { startConnected(); }

    const Strings& roots() { return extension->pathsOfRootFolders(); }
};

/// Connects anew in the middle of a read.
class ConnectingAgain : public FinderSync {
public:
    void setDisplayBackup(std::int64_t) override { connect(); }
};

class InboundMessagesDeath : public InboundMessages {
protected:
    void expectFatal(const std::string& bytes, const std::string& reason) {
        RecordingTest::expectFatal([&] { receive(bytes); }, reason);
    }
    void expectFatalLine(const std::string& line, const std::string& reason,
                         const std::string& shown) {
        expectFatal(line, "line 1 of a read of " + std::to_string(line.size()) +
                              " bytes: " + reason + ": " + shown);
    }
    /// For a line of ASCII.
    void expectFatalLine(const std::string& line, const std::string& reason) {
        expectFatalLine(line, reason, line.substr(0, 80) + (line.size() > 80 ? "\u2026" : ""));
    }
};

TEST_F(InboundMessages, TheIndexIsThatOfTheFirstEqualEntry) {
    receive(addFolder("/a") + "\n" + addFolder("/b") + "\n");
    forgetCalls();
    receive(addFolder("/b") + "\n");
    EXPECT_EQ(calls("print: ").back(), "new path is at index 1");
    extension->setPathsOfRootFolders({"/x", "/b", "/b"});
    receive(addFolder("/b") + "\n");
    EXPECT_EQ(calls("print: ").back(), "new path is at index 1");
}

TEST_F(InboundMessages, DeletingTakesTheFirstEqualEntryAndKeepsTheOrder) {
    extension->setPathsOfRootFolders({"/a", "/b", "/c", "/b"});
    receive(deleteFolder("/b") + "\n");
    EXPECT_EQ(roots(), (Strings{"/a", "/c", "/b"}));
    receive(deleteFolder("/a") + "\n");
    EXPECT_EQ(roots(), (Strings{"/c", "/b"}));
    receive(deleteFolder("/b") + "\n");
    EXPECT_EQ(roots(), Strings{"/c"});
}

TEST_F(InboundMessages, AMessageCutBeforeItsLineFeedIsAppliedAndTheNextReadIsDropped) {
    receive(messageOfSize(1024) + "\n" + addFolder("/b") + "\n");
    EXPECT_EQ(roots(), Strings{"/long"});
    EXPECT_EQ(calls("inputStream read:maxLength: "),
              (Strings{"1024 -> 1024", "1024 -> " + std::to_string(addFolder("/b").size() + 2)}));
}

TEST_F(InboundMessages, AReadOfNothingOrAnErrorAsksAgain) {
    script().hasBytesAvailable = {true, true, true, true, false};
    script().reads = {{.count = 0, .bytes = "stale"},
                      {.count = -1, .bytes = "stale"},
                      {.count = -5, .bytes = "stale"},
                      {.count = static_cast<std::int64_t>(addFolder("/a").size()),
                       .bytes = addFolder("/a") + "and bytes that the count leaves out"}};
    extension->stream(*platform::recording::inputStream(), NSStreamEvent::HasBytesAvailable);
    EXPECT_EQ(trace(), "receiving\nserver said: " + addFolder("/a") + "\ntype - add_folder\n");
    EXPECT_EQ(roots(), Strings{"/a"});
    EXPECT_EQ(calls("inputStream hasBytesAvailable").size(), 5U);
}

TEST_F(InboundMessages, TypesAndSwitchesAreComparedAsTexts) {
    receive(R"({"type":"set_menu_usage","displayBackup":"0"})");
    const Strings compared = calls("isEqualToString: ");
    EXPECT_NE(std::ranges::find(compared, "set_menu_usage set_menu_usage"), compared.end());
    EXPECT_NE(std::ranges::find(compared, "0 1"), compared.end());
}

TEST_F(InboundMessages, OnlyTheTextOneShowsTheBackupEntry) {
    const auto displayBackupAfter = [this](const std::string& value) {
        extension->setDisplayBackup(7);
        receive(R"({"type":"set_menu_usage","displayBackup":")" + value + "\"}\n");
        return extension->displayBackup();
    };
    EXPECT_EQ(displayBackupAfter("1"), 1);
    for (const char* other : {"0", "true", "01", " 1", "1 ", "", "2", "-1", "\uff11"})
        EXPECT_EQ(displayBackupAfter(other), 0) << other;
}

TEST_F(InboundMessages, ReadingGoesOnWithTheStreamThatIsThereAtEachLoopTest) {
    extension.reset();
    platform::recording::reset();
    startConnected<ConnectingAgain>();
    platform::recording::peerSends(R"({"type":"set_menu_usage","displayBackup":"1"})");
    platform::recording::peerSends(addFolder("/of the old link"));
    platform::recording::runAll();
    EXPECT_EQ(calls("inputStream hasBytesAvailable -> "), (Strings{"true", "false"}));
    EXPECT_TRUE(roots().empty());
    receive(addFolder("/of the new link"));
    EXPECT_EQ(roots(), Strings{"/of the new link"});
}

TEST_F(InboundMessagesDeath, BytesThatAreNotUTF8) {
    expectFatal("{\"type\":\"x\"}\n" + addFolder("/a\xff"),
                "line 2 of a read of 47 bytes: not valid UTF-8 at byte 31: "
                "{\"type\":\"add_folder\",\"path\":\"/a");
    expectFatal("\xff", "line 1 of a read of 1 bytes: not valid UTF-8 at byte 0: ");
    expectFatal(std::string(1023, ' ') + "\u00e9",
                "line 1 of a read of 1024 bytes: not valid UTF-8 at byte 1023 (the read was full, "
                "so a message was probably cut: see docs/protocol.md#the-1024-byte-rule): " +
                    std::string(80, ' ') + "\u2026");
}

TEST_F(InboundMessagesDeath, ALineThatIsNotAJSONObject) {
    for (const char* line : {"hello", "1", "\"type\"", "{", " ", "{\"type\":\"x\"} trailing",
                             "\xef\xbb\xbf{\"type\":\"x\"}"})
        expectFatalLine(line, "not JSON");
    expectFatalLine("\t\x1f\x7f\u00e9\r", "not JSON", "\\x09\\x1F\\x7F\u00e9\\x0D");
    expectFatalLine("[{\"type\":\"x\"}]", "the top level is not an object");
    expectFatalLine("{}", "no \"type\"");
    std::string eighty; // characters, of two bytes each
    while (eighty.size() < 160)
        eighty += "\u00e9";
    expectFatalLine(eighty, "not JSON", eighty);
    expectFatalLine(eighty + "e", "not JSON", eighty + "\u2026");
    script().encoding = false;
    expectFatalLine("{}", "not encodable as UTF-8");
}

TEST_F(InboundMessagesDeath, ATypeThatIsNotAString) {
    for (const char* type : {"5", "null", "true", "[]", "{}"})
        expectFatalLine("{\"type\":" + std::string(type) + "}", "\"type\" is not a string");
}

/// A full read of valid JSON is one padded block, and no sign of a message that was cut.
TEST_F(InboundMessagesDeath, AMessageThatFillsItsReadLacksAPath) {
    std::string block = R"({"type":"add_folder"})";
    block.resize(1024, ' ');
    expectFatalLine(block, "no \"path\"");
}

TEST_F(InboundMessagesDeath, ThePathIsLookedUpBeforeTheListIsFetched) {
    extension.reset();
    platform::recording::reset();
    startConnected<tests::TellingOfFetches>();
    for (const char* type : {"add_folder", "del_folder"})
        EXPECT_EXIT(receive("{\"type\":\"" + std::string(type) + "\"}"),
                    testing::KilledBySignal(SIGABRT),
                    "print: type - " + std::string(type) + "\nfatal error");
}

TEST_F(InboundMessagesDeath, NoMemoryForTheBuffer) {
    script().memory = false;
    expectFatal(addFolder("/a"), "no memory for the inbound buffer");
}

} // namespace

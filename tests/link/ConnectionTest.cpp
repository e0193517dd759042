#include "tests/RecordingTest.h"

#include <csignal>

using findersync::FinderSync;
using platform::NSStreamEvent;
using tests::Strings;

namespace {

class Connection : public tests::RecordingTest {
protected:
    /// What one event writes to standard output.
    std::string traceOf(FinderSync& started, platform::NSStream& stream, std::uint64_t event) {
        forgetCalls();
        started.stream(stream, static_cast<NSStreamEvent>(event));
        return trace();
    }
};

class ConnectionDeath : public Connection {};

TEST_F(Connection, ANormalStartTracesItsSteps) {
    start();
    platform::recording::runAll();
    EXPECT_EQ(trace(), "connecting...\nOpened connection\nOpened connection\nSending\n");
    EXPECT_TRUE(extension->isSocketConnected());
}

TEST_F(Connection, TheEndTakesTheLinkDownForGood) {
    auto& started = startConnected();
    closeLink();
    EXPECT_EQ(trace(), "ignore\n");
    EXPECT_FALSE(started.isSocketConnected());
    started.stream(*platform::recording::inputStream(), NSStreamEvent::OpenCompleted);
    EXPECT_FALSE(started.isSocketConnected());
}

TEST_F(Connection, AResetIsAnErrorAndTheLinkStillCountsAsUp) {
    auto& started = startConnected();
    platform::recording::peerResets();
    platform::recording::runAll();
    EXPECT_EQ(trace(), "Stream open error\nStream open error\n");
    EXPECT_TRUE(started.isSocketConnected());
}

TEST_F(Connection, EventsAreComparedAsWholeValues) {
    auto& started = startConnected();
    for (const std::uint64_t event :
         {0ULL, 3ULL, 5ULL, 6ULL, 7ULL, 9ULL, 12ULL, 15ULL, 17ULL, 18ULL, 31ULL, 32ULL, 1ULL << 63,
          0x1'0000'0001ULL, 0x1'0000'0010ULL}) {
        EXPECT_EQ(traceOf(started, *platform::recording::inputStream(), event), "default\n")
            << event;
    }
    EXPECT_TRUE(started.isSocketConnected());
    EXPECT_TRUE(started.pathsOfRootFolders().empty());
}

TEST_F(ConnectionDeath, BytesBeforeThereIsAnInputStream) {
    start();
    FinderSync unconnected;
    EXPECT_EXIT(
        unconnected.stream(*platform::recording::inputStream(), NSStreamEvent::HasBytesAvailable),
        testing::KilledBySignal(SIGABRT),
        "print: receiving\nfatal error: bytes are available, but there is no input stream");
}

} // namespace

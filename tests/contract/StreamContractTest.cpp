#include "platform/CoreFoundation.h"
#include "tests/contract/Surroundings.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using platform::NSInputStream;
using platform::NSOutputStream;
using platform::NSStream;
using platform::NSStreamEvent;

namespace {

constexpr auto opened = NSStreamEvent::OpenCompleted;
constexpr auto bytes = NSStreamEvent::HasBytesAvailable;
constexpr auto space = NSStreamEvent::HasSpaceAvailable;
constexpr auto error = NSStreamEvent::ErrorOccurred;
constexpr auto end = NSStreamEvent::EndEncountered;

using Events = std::vector<NSStreamEvent>;

/// A stream pair with a delegate that records the events of each stream.
class StreamContract : public contract::ContractTest, public platform::NSStreamDelegate {
protected:
    void create(std::uint32_t port) {
        platform::CFStreamCreatePairWithSocketToHost("127.0.0.1", port, input, output);
        ASSERT_TRUE(input);
        ASSERT_TRUE(output);
        for (NSStream* stream :
             {static_cast<NSStream*>(input.get()), static_cast<NSStream*>(output.get())}) {
            stream->setDelegate(this);
            stream->scheduleInRunLoop(platform::currentRunLoop(), platform::NSDefaultRunLoopMode);
        }
    }

    void open(std::uint32_t port) {
        create(port);
        input->open();
        output->open();
        // The run loop delivers the outcome.
        EXPECT_TRUE(inputEvents.empty());
        EXPECT_TRUE(outputEvents.empty());
    }

    void connect() {
        open(contract::listen());
        expectEvents({opened}, {opened, space});
        EXPECT_FALSE(input->hasBytesAvailable());
    }

    /// Expects exactly these events on each stream since the last time.
    void expectEvents(const Events& ofInput, const Events& ofOutput, int line = __builtin_LINE()) {
        const testing::ScopedTrace trace(__FILE__, line, "");
        (void)contract::runUntil([&] {
            return inputEvents.size() >= ofInput.size() && outputEvents.size() >= ofOutput.size();
        });
        contract::settle();
        EXPECT_EQ(std::exchange(inputEvents, {}), ofInput);
        EXPECT_EQ(std::exchange(outputEvents, {}), ofOutput);
    }

    void expectNothingToRead(std::int64_t result) {
        EXPECT_FALSE(input->hasBytesAvailable());
        EXPECT_EQ(readOnce(10).first, result);
    }

    void TearDown() override {
        input.reset();
        output.reset();
        ContractTest::TearDown();
    }

    void stream(NSStream& stream, NSStreamEvent event) override {
        (input && input->isEqual(stream) ? inputEvents : outputEvents).push_back(event);
        if (event == bytes && releasesWhenTold)
            input.reset();
        else if (event == bytes && readsWhenTold)
            received += readOnce(1024).second;
    }

    std::pair<std::int64_t, std::string> readOnce(std::size_t length) {
        std::string buffer(length, '\0');
        const std::int64_t count =
            input->read(reinterpret_cast<std::uint8_t*>(buffer.data()), length);
        buffer.resize(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)));
        return {count, buffer};
    }

    std::int64_t write(const std::string& text) {
        return output->write(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }

    std::shared_ptr<NSInputStream> input;
    std::shared_ptr<NSOutputStream> output;
    Events inputEvents;
    Events outputEvents;
    bool readsWhenTold = true;
    bool releasesWhenTold = false;
    std::string received;
};

TEST_F(StreamContract, AStreamEqualsItselfAlone) {
    create(contract::unusedPort());
    EXPECT_TRUE(input->isEqual(*input));
    EXPECT_TRUE(output->isEqual(*output));
    EXPECT_FALSE(input->isEqual(*output));
    EXPECT_FALSE(output->isEqual(*input));
}

TEST_F(StreamContract, NothingIsConnectedBeforeOpen) {
    create(contract::listen());
    expectEvents({}, {});
    expectNothingToRead(-1);
    EXPECT_EQ(write("early"), -1);
}

TEST_F(StreamContract, AWriteDoesNotWaitForTheConnection) {
    open(contract::listen());
    EXPECT_EQ(write("early"), -1);
    contract::settle();
    EXPECT_EQ(contract::peerReceived(), "");
}

TEST_F(StreamContract, ARefusedConnectionIsOneErrorOnEachStream) {
    open(contract::unusedPort());
    expectEvents({error}, {error});
    expectNothingToRead(-1);
    EXPECT_EQ(write("late"), -1);
}

TEST_F(StreamContract, APortAbove65535IsOneErrorOnEachStream) {
    // Cut to 16 bits, the last one would reach the peer.
    for (const std::uint32_t port : {65536U, 70000U, 4294967295U, contract::listen() + 65536}) {
        open(port);
        expectEvents({error}, {error});
    }
}

TEST_F(StreamContract, BytesAreAnnouncedAndRead) {
    connect();
    for (const char* text : {"hello", "again", "and again"}) {
        contract::peerSends(text);
        expectEvents({bytes}, {});
        EXPECT_EQ(std::exchange(received, {}), text);
        EXPECT_FALSE(input->hasBytesAvailable());
    }
}

TEST_F(StreamContract, BytesThatNobodyReadsAreAnnouncedOnceAndStay) {
    connect();
    readsWhenTold = false;
    contract::peerSends("hello");
    expectEvents({bytes}, {});
    EXPECT_TRUE(input->hasBytesAvailable());
    EXPECT_EQ(readOnce(2), std::pair(std::int64_t{2}, std::string("he")));
    EXPECT_TRUE(input->hasBytesAvailable());
    EXPECT_EQ(readOnce(10), std::pair(std::int64_t{3}, std::string("llo")));
    EXPECT_FALSE(input->hasBytesAvailable());
}

TEST_F(StreamContract, TheInputStreamTellsTheEndOnce) {
    connect();
    contract::peerCloses();
    expectEvents({end}, {});
    expectNothingToRead(0);
}

TEST_F(StreamContract, BytesSentBeforeTheEndAreReadFirst) {
    connect();
    contract::peerSends("last words");
    contract::peerCloses();
    expectEvents({bytes, end}, {});
    EXPECT_EQ(received, "last words");
}

TEST_F(StreamContract, AResetIsAnErrorOnEachStreamAndNoEnd) {
    connect();
    contract::peerResets();
    expectEvents({error}, {error});
    expectNothingToRead(-1);
    EXPECT_EQ(write("late"), -1);
}

TEST_F(StreamContract, BytesSentBeforeAResetAreReadFirst) {
    connect();
    contract::peerSends("last words");
    contract::peerResets();
    expectEvents({bytes, error}, {error});
    EXPECT_EQ(received, "last words");
}

TEST_F(StreamContract, WrittenBytesReachThePeerAndSpaceIsToldOnceMore) {
    connect();
    EXPECT_EQ(write("report"), 6);
    EXPECT_TRUE(outputEvents.empty());
    expectEvents({}, {space});
    EXPECT_EQ(contract::peerReceived(), "report");
}

TEST_F(StreamContract, TwoWritesFollowEachOtherDirectly) {
    connect();
    EXPECT_EQ(write("{\"a\":1}"), 7);
    EXPECT_EQ(write("{\"b\":2}"), 7);
    contract::settle();
    EXPECT_EQ(contract::peerReceived(), "{\"a\":1}{\"b\":2}");
    EXPECT_EQ(outputEvents.back(), space);
}

TEST_F(StreamContract, AWriteOfNothingTakesNothing) {
    connect();
    EXPECT_EQ(output->write(nullptr, 0), 0);
    contract::settle();
    EXPECT_EQ(contract::peerReceived(), "");
    EXPECT_EQ(std::ranges::count(outputEvents, error), 0);
}

TEST_F(StreamContract, AWriteAfterTheInputHasEndedIsStillTried) {
    connect();
    contract::peerCloses();
    ASSERT_TRUE(contract::runUntil([this] { return std::ranges::count(inputEvents, end) == 1; }));
    EXPECT_EQ(write("report"), 6);
}

TEST_F(StreamContract, WithoutADelegateNothingIsTold) {
    create(contract::listen());
    input->setDelegate(nullptr);
    input->open();
    output->open();
    expectEvents({}, {opened, space});
}

TEST_F(StreamContract, AStreamThatIsNotScheduledTellsNothing) {
    platform::CFStreamCreatePairWithSocketToHost("127.0.0.1", contract::listen(), input, output);
    input->setDelegate(this);
    input->open();
    expectEvents({}, {});
}

TEST_F(StreamContract, AStreamScheduledInAnotherModeWaitsForThatMode) {
    platform::CFStreamCreatePairWithSocketToHost("127.0.0.1", contract::listen(), input, output);
    input->setDelegate(this);
    input->scheduleInRunLoop(platform::currentRunLoop(), "NSEventTrackingRunLoopMode");
    input->open();
    expectEvents({}, {});
}

TEST_F(StreamContract, AStreamMayBeReleasedByTheEventThatItDelivers) {
    connect();
    releasesWhenTold = true;
    contract::peerSends("hello");
    ASSERT_TRUE(contract::runUntil([this] { return !input; }));
    EXPECT_EQ(write("report"), 6);
    expectEvents({bytes}, {space});
    EXPECT_EQ(contract::peerReceived(), "report");
}

TEST_F(StreamContract, ReleasingBothStreamsClosesTheConnection) {
    connect();
    EXPECT_FALSE(contract::peerSeesEnd());
    input.reset();
    EXPECT_FALSE(contract::peerSeesEnd());
    output.reset();
    EXPECT_TRUE(contract::peerSeesEnd());
    expectEvents({}, {});
}

} // namespace

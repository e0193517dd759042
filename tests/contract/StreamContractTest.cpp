#include "platform/CoreFoundation.h"
#include "tests/contract/ContractTest.h"

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

/// A stream pair with a delegate that takes down the events of each stream.
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
    }

    /// A pair that is connected and has told so.
    void connect() {
        open(contract::listen());
        ASSERT_TRUE(contract::runUntil([this] { return count(outputEvents, space) == 1; }));
        inputEvents.clear();
        outputEvents.clear();
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

    static std::ptrdiff_t count(const Events& events, NSStreamEvent event) {
        return std::ranges::count(events, event);
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
    contract::settle();
    EXPECT_TRUE(inputEvents.empty());
    EXPECT_TRUE(outputEvents.empty());
    EXPECT_FALSE(input->hasBytesAvailable());
    EXPECT_EQ(readOnce(10).first, -1);
    EXPECT_EQ(write("early"), -1);
}

TEST_F(StreamContract, TheOutcomeArrivesFromTheRunLoopOnly) {
    open(contract::listen());
    EXPECT_TRUE(inputEvents.empty());
    EXPECT_TRUE(outputEvents.empty());
}

TEST_F(StreamContract, AWriteDoesNotWaitForTheConnection) {
    open(contract::listen());
    EXPECT_EQ(write("early"), -1);
    contract::settle();
    EXPECT_EQ(contract::peerReceived(), "");
}

TEST_F(StreamContract, EachStreamSaysThatItIsOpenAndTheOutputThatItHasSpace) {
    open(contract::listen());
    contract::settle();
    EXPECT_EQ(inputEvents, Events{opened});
    EXPECT_EQ(outputEvents, (Events{opened, space}));
    EXPECT_FALSE(input->hasBytesAvailable());
}

TEST_F(StreamContract, ARefusedConnectionIsOneErrorOnEachStream) {
    open(contract::unusedPort());
    EXPECT_TRUE(inputEvents.empty());
    EXPECT_TRUE(outputEvents.empty());
    contract::settle();
    EXPECT_EQ(inputEvents, Events{error});
    EXPECT_EQ(outputEvents, Events{error});
    EXPECT_FALSE(input->hasBytesAvailable());
    EXPECT_EQ(readOnce(10).first, -1);
    EXPECT_EQ(write("late"), -1);
}

TEST_F(StreamContract, APortThatDoesNotExistIsOneErrorOnEachStream) {
    for (const std::uint32_t port : {65536U, 70000U, 4294967295U}) {
        open(port);
        contract::settle();
        EXPECT_EQ(std::exchange(inputEvents, {}), Events{error}) << port;
        EXPECT_EQ(std::exchange(outputEvents, {}), Events{error}) << port;
    }
}

TEST_F(StreamContract, APortIsNeverCutToSixteenBits) {
    open(contract::listen() + 65536);
    contract::settle();
    EXPECT_EQ(inputEvents, Events{error});
}

TEST_F(StreamContract, BytesAreAnnouncedAndRead) {
    connect();
    contract::peerSends("hello");
    ASSERT_TRUE(contract::runUntil([this] { return !received.empty(); }));
    contract::settle();
    EXPECT_EQ(received, "hello");
    EXPECT_EQ(inputEvents, Events{bytes});
    EXPECT_TRUE(outputEvents.empty());
    EXPECT_FALSE(input->hasBytesAvailable());
}

TEST_F(StreamContract, AReadGivesNoMoreThanWasAskedFor) {
    connect();
    readsWhenTold = false;
    contract::peerSends("hello");
    ASSERT_TRUE(contract::runUntil([this] { return count(inputEvents, bytes) == 1; }));
    EXPECT_TRUE(input->hasBytesAvailable());
    EXPECT_EQ(readOnce(2), std::pair(std::int64_t{2}, std::string("he")));
    EXPECT_TRUE(input->hasBytesAvailable());
    EXPECT_EQ(readOnce(10), std::pair(std::int64_t{3}, std::string("llo")));
    EXPECT_FALSE(input->hasBytesAvailable());
}

TEST_F(StreamContract, BytesThatNobodyReadsAreAnnouncedOnce) {
    connect();
    readsWhenTold = false;
    contract::peerSends("hello");
    ASSERT_TRUE(contract::runUntil([this] { return count(inputEvents, bytes) == 1; }));
    contract::settle();
    EXPECT_EQ(inputEvents, Events{bytes});
}

TEST_F(StreamContract, BytesAreAnnouncedAgainAfterEachReading) {
    connect();
    for (std::ptrdiff_t round = 1; round <= 3; ++round) {
        contract::peerSends("again");
        ASSERT_TRUE(contract::runUntil([&] { return count(inputEvents, bytes) == round; }));
    }
    contract::settle();
    EXPECT_EQ(received, "againagainagain");
    EXPECT_EQ(inputEvents, (Events{bytes, bytes, bytes}));
}

TEST_F(StreamContract, TheEndIsToldOnceByTheInputStream) {
    connect();
    contract::peerCloses();
    ASSERT_TRUE(contract::runUntil([this] { return count(inputEvents, end) == 1; }));
    contract::settle();
    EXPECT_EQ(inputEvents, Events{end});
    EXPECT_TRUE(outputEvents.empty());
    EXPECT_FALSE(input->hasBytesAvailable());
    EXPECT_EQ(readOnce(10).first, 0);
}

TEST_F(StreamContract, BytesSentBeforeTheEndAreReadFirst) {
    connect();
    contract::peerSends("last words");
    contract::peerCloses();
    ASSERT_TRUE(contract::runUntil([this] { return count(inputEvents, end) == 1; }));
    EXPECT_EQ(received, "last words");
    EXPECT_EQ(inputEvents, (Events{bytes, end}));
}

TEST_F(StreamContract, AResetIsAnErrorOnEachStreamAndNoEnd) {
    connect();
    contract::peerResets();
    ASSERT_TRUE(contract::runUntil([this] { return count(outputEvents, error) == 1; }));
    contract::settle();
    EXPECT_EQ(inputEvents, Events{error});
    EXPECT_EQ(outputEvents, Events{error});
    EXPECT_FALSE(input->hasBytesAvailable());
    EXPECT_EQ(readOnce(10).first, -1);
    EXPECT_EQ(write("late"), -1);
}

TEST_F(StreamContract, BytesSentBeforeAResetAreReadFirst) {
    connect();
    contract::peerSends("last words");
    contract::peerResets();
    ASSERT_TRUE(contract::runUntil([this] { return count(outputEvents, error) == 1; }));
    contract::settle();
    EXPECT_EQ(received, "last words");
    EXPECT_EQ(inputEvents, (Events{bytes, error}));
    EXPECT_EQ(outputEvents, Events{error});
}

TEST_F(StreamContract, WrittenBytesReachThePeerAndSpaceIsToldOnceMore) {
    connect();
    EXPECT_EQ(write("report"), 6);
    EXPECT_TRUE(outputEvents.empty());
    ASSERT_TRUE(contract::runUntil([this] { return count(outputEvents, space) == 1; }));
    contract::settle();
    EXPECT_EQ(outputEvents, Events{space});
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
    EXPECT_EQ(count(outputEvents, error), 0);
}

TEST_F(StreamContract, AWriteAfterTheInputHasEndedIsStillTried) {
    connect();
    contract::peerCloses();
    ASSERT_TRUE(contract::runUntil([this] { return count(inputEvents, end) == 1; }));
    EXPECT_EQ(write("report"), 6);
}

TEST_F(StreamContract, WithoutADelegateNothingIsTold) {
    create(contract::listen());
    input->setDelegate(nullptr);
    input->open();
    output->open();
    contract::settle();
    EXPECT_TRUE(inputEvents.empty());
    EXPECT_EQ(outputEvents, (Events{opened, space}));
}

TEST_F(StreamContract, AStreamThatIsNotScheduledTellsNothing) {
    platform::CFStreamCreatePairWithSocketToHost("127.0.0.1", contract::listen(), input, output);
    input->setDelegate(this);
    input->open();
    contract::settle();
    EXPECT_TRUE(inputEvents.empty());
}

TEST_F(StreamContract, AStreamScheduledInAnotherModeWaitsForThatMode) {
    platform::CFStreamCreatePairWithSocketToHost("127.0.0.1", contract::listen(), input, output);
    input->setDelegate(this);
    input->scheduleInRunLoop(platform::currentRunLoop(), "NSEventTrackingRunLoopMode");
    input->open();
    contract::settle();
    EXPECT_TRUE(inputEvents.empty());
}

TEST_F(StreamContract, AStreamMayBeReleasedByTheEventThatItDelivers) {
    connect();
    releasesWhenTold = true;
    contract::peerSends("hello");
    ASSERT_TRUE(contract::runUntil([this] { return !input; }));
    EXPECT_EQ(write("report"), 6);
    contract::settle();
    EXPECT_EQ(contract::peerReceived(), "report");
    EXPECT_EQ(inputEvents, Events{bytes});
}

TEST_F(StreamContract, ReleasingBothStreamsClosesTheConnection) {
    connect();
    EXPECT_FALSE(contract::peerSeesEnd());
    input.reset();
    EXPECT_FALSE(contract::peerSeesEnd());
    output.reset();
    EXPECT_TRUE(contract::peerSeesEnd());
    contract::settle();
    EXPECT_TRUE(inputEvents.empty());
    EXPECT_TRUE(outputEvents.empty());
}

} // namespace

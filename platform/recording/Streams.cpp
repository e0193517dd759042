// Streams over an in-memory connection.

#include "platform/recording/Streams.h"

#include "platform/CoreFoundation.h"
#include "platform/recording/Recording.h"
#include "platform/recording/RunLoop.h"

#include <algorithm>
#include <utility>

namespace platform {

namespace {

using recording::record;

enum class Status { NotOpen, Opening, Open, AtEnd, Error };

/// Shared by both streams of a pair.
struct Connection {
    bool isReachable = false;
    std::deque<std::string> inbound; ///< one element for each read
};

/// The pair that `newest` returns.
struct StreamPair {
    std::weak_ptr<NSInputStream> input;
    std::weak_ptr<NSOutputStream> output;
};

StreamPair& newest() {
    static StreamPair instance;
    return instance;
}

/// The operations that every stream has. `name` stands for the stream in records.
template <typename Base> class RecordedStream : public Base {
public:
    RecordedStream(std::string name, std::shared_ptr<Connection> connection)
        : name_(std::move(name)), connection_(std::move(connection)) {}
    ~RecordedStream() override { record(name_ + " released"); }
    RecordedStream(const RecordedStream&) = delete;
    RecordedStream& operator=(const RecordedStream&) = delete;

    void setDelegate(NSStreamDelegate* delegate) override {
        record(name_ + " setDelegate:");
        delegate_ = delegate;
    }
    void scheduleInRunLoop(NSRunLoop&, std::string_view mode) override {
        record(name_ + " scheduleInRunLoop:forMode: " + std::string(mode));
        isScheduled_ = isScheduled_ || mode == NSDefaultRunLoopMode;
    }
    void open() override {
        record(name_ + " open");
        status_ = Status::Opening;
    }
    [[nodiscard]] bool isEqual(const NSStream& other) const override {
        record(name_ + " isEqual:");
        return this == &other;
    }

    /// Applies an event to the status. Returns false if the delegate must not receive it.
    bool take(NSStreamEvent event) {
        const bool isLive = status_ == Status::Opening || status_ == Status::Open;
        if (!isLive || !isScheduled_)
            return false;
        switch (event) {
        case NSStreamEvent::OpenCompleted:
            status_ = Status::Open;
            break;
        case NSStreamEvent::ErrorOccurred:
            status_ = Status::Error;
            break;
        case NSStreamEvent::EndEncountered:
            status_ = Status::AtEnd;
            break;
        default:
            break;
        }
        return true;
    }

    [[nodiscard]] NSStreamDelegate* delegate() const { return delegate_; }
    [[nodiscard]] Status status() const { return status_; }

protected:
    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] Connection& connection() const { return *connection_; }

private:
    std::string name_;
    std::shared_ptr<Connection> connection_;
    NSStreamDelegate* delegate_ = nullptr;
    bool isScheduled_ = false;
    Status status_ = Status::NotOpen;
};

void deliver(NSStream& stream, NSStreamEvent event);

void announce(const std::weak_ptr<NSStream>& stream, NSStreamEvent event) {
    recording::post([stream, event] {
        if (const auto living = stream.lock())
            deliver(*living, event);
    });
}

class RecordedInputStream : public RecordedStream<NSInputStream>,
                            public std::enable_shared_from_this<RecordedInputStream> {
public:
    using RecordedStream::RecordedStream;

    void open() override {
        RecordedStream::open();
        announce(weak_from_this(), connection().isReachable ? NSStreamEvent::OpenCompleted
                                                            : NSStreamEvent::ErrorOccurred);
    }

    [[nodiscard]] bool hasBytesAvailable() const override {
        const bool answer = nextAnswer();
        record(name() + " hasBytesAvailable -> " + (answer ? "true" : "false"));
        return answer;
    }

    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        const recording::Read outcome = nextRead(maxLength);
        const std::size_t length = std::min(maxLength, outcome.bytes.size());
        std::copy_n(outcome.bytes.data(), length, buffer);
        record(name() + " read:maxLength: " + std::to_string(maxLength) + " -> " +
               std::to_string(outcome.count));
        return outcome.count;
    }

    void receive(std::string bytes) {
        connection().inbound.push_back(std::move(bytes));
        announce(weak_from_this(), NSStreamEvent::HasBytesAvailable);
    }

    /// False for HasBytesAvailable when the bytes have been read meanwhile.
    [[nodiscard]] bool isWorthDelivering(NSStreamEvent event) const {
        return event != NSStreamEvent::HasBytesAvailable || !connection().inbound.empty();
    }

private:
    [[nodiscard]] bool nextAnswer() const {
        std::deque<bool>& answers = recording::script().hasBytesAvailable;
        if (!answers.empty()) {
            const bool answer = answers.front();
            answers.pop_front();
            return answer;
        }
        if (status() != Status::Open)
            return false;
        return !recording::script().reads.empty() || !connection().inbound.empty();
    }

    recording::Read nextRead(std::size_t maxLength) {
        std::deque<recording::Read>& reads = recording::script().reads;
        if (!reads.empty()) {
            recording::Read outcome = std::move(reads.front());
            reads.pop_front();
            return outcome;
        }
        if (status() == Status::AtEnd)
            return {};
        if (status() != Status::Open || connection().inbound.empty())
            return {.count = -1, .bytes = {}};
        std::string bytes = connection().inbound.front().substr(0, maxLength);
        connection().inbound.front().erase(0, bytes.size());
        if (connection().inbound.front().empty())
            connection().inbound.pop_front();
        const auto count = static_cast<std::int64_t>(bytes.size());
        return {.count = count, .bytes = std::move(bytes)};
    }
};

class RecordedOutputStream : public RecordedStream<NSOutputStream>,
                             public std::enable_shared_from_this<RecordedOutputStream> {
public:
    using RecordedStream::RecordedStream;

    void open() override {
        RecordedStream::open();
        if (!connection().isReachable) {
            announce(weak_from_this(), NSStreamEvent::ErrorOccurred);
            return;
        }
        announce(weak_from_this(), NSStreamEvent::OpenCompleted);
        announce(weak_from_this(), NSStreamEvent::HasSpaceAvailable);
    }

    std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
        const std::int64_t taken = nextOutcome(length);
        const std::string text(bytes, bytes + length);
        record(name() + " write:maxLength: " + text + " -> " + std::to_string(taken));
        if (taken < 0)
            return taken;
        recording::world().received += text.substr(0, static_cast<std::size_t>(taken));
        announce(weak_from_this(), NSStreamEvent::HasSpaceAvailable);
        return taken;
    }

private:
    std::int64_t nextOutcome(std::size_t length) {
        std::deque<std::int64_t>& outcomes = recording::script().writes;
        if (!outcomes.empty()) {
            const std::int64_t outcome = outcomes.front();
            outcomes.pop_front();
            return outcome;
        }
        return status() == Status::Open ? static_cast<std::int64_t>(length) : -1;
    }
};

template <typename Stream> void tell(Stream& stream, NSStreamEvent event) {
    if (stream.take(event) && stream.delegate() != nullptr)
        stream.delegate()->stream(stream, event);
}

void deliver(NSStream& stream, NSStreamEvent event) {
    if (auto* const input = dynamic_cast<RecordedInputStream*>(&stream)) {
        if (input->isWorthDelivering(event))
            tell(*input, event);
    } else if (auto* const output = dynamic_cast<RecordedOutputStream*>(&stream)) {
        tell(*output, event);
    }
}

} // namespace

void CFStreamCreatePairWithSocketToHost(const std::string& host, std::uint32_t port,
                                        std::shared_ptr<NSInputStream>& readStream,
                                        std::shared_ptr<NSOutputStream>& writeStream) {
    record("CFStreamCreatePairWithSocketToHost: " + host + " " + std::to_string(port));
    const auto connection = std::make_shared<Connection>();
    connection->isReachable = recording::world().listeningPorts.contains(port);
    newest().input.reset();
    newest().output.reset();
    if (recording::script().readStream) {
        readStream = std::make_shared<RecordedInputStream>("inputStream", connection);
        newest().input = readStream;
    }
    if (recording::script().writeStream) {
        writeStream = std::make_shared<RecordedOutputStream>("outputStream", connection);
        newest().output = writeStream;
    }
}

namespace recording {

void forgetStreams() {
    newest() = StreamPair();
}

std::shared_ptr<NSInputStream> inputStream() {
    return newest().input.lock();
}

std::shared_ptr<NSOutputStream> outputStream() {
    return newest().output.lock();
}

void peerSends(std::string bytes) {
    if (const auto stream = std::dynamic_pointer_cast<RecordedInputStream>(inputStream()))
        stream->receive(std::move(bytes));
}

void peerCloses() {
    announce(newest().input, NSStreamEvent::EndEncountered);
}

void peerResets() {
    announce(newest().input, NSStreamEvent::ErrorOccurred);
    announce(newest().output, NSStreamEvent::ErrorOccurred);
}

} // namespace recording

} // namespace platform

// Stream pairs over one TCP socket, delivered by sd-event.
//
// The two streams share one Connection. It is kept alive by the streams and knows them only while
// they live; a stream may be released by the very event that it delivers.

#include "platform/CoreFoundation.h"
#include "platform/System.h"
#include "platform/linux/RunLoop.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <limits>
#include <netinet/in.h>
#include <string>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

enum class Status { NotOpen, Opening, Open, AtEnd, Error };

/// What the connection knows of one of its two streams.
struct Direction {
    Status status = Status::NotOpen;
    NSStream* stream = nullptr; ///< null once the stream is released
    NSStreamDelegate* delegate = nullptr;
    linux_backend::RunLoop* runLoop = nullptr; ///< null until the stream is scheduled

    [[nodiscard]] bool isLive() const {
        return status == Status::Opening || status == Status::Open;
    }
    [[nodiscard]] bool awaitsOpening() const {
        return status == Status::Opening && runLoop != nullptr;
    }
};

void deliver(const Direction& direction, NSStreamEvent event) {
    if (direction.stream != nullptr && direction.delegate != nullptr)
        direction.delegate->stream(*direction.stream, event);
}

/// A link whose events do not come any more would be lost without a word.
void require(int result) {
    if (result < 0)
        fatalError(std::string("the link cannot be watched: ") + std::strerror(-result));
}

class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(std::string host, std::uint32_t port) : host_(std::move(host)), port_(port) {}
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void open(Direction& direction);
    void schedule(Direction& direction, linux_backend::RunLoop& runLoop);
    void release(Direction& direction);

    [[nodiscard]] bool hasBytesAvailable() const;
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength);
    std::int64_t write(const std::uint8_t* bytes, std::size_t length);

    Direction input;
    Direction output;

private:
    enum class Link { None, Connecting, Established, Failed };

    void beginConnecting();
    void listen();
    [[nodiscard]] bool watchSocket(sd_event* event);
    void announceFailure(sd_event* event);
    void updateInterest();
    void handleEvents(std::uint32_t events);
    void finishConnecting();
    void deliverOpenCompleted();
    void deliverInput();
    [[nodiscard]] bool findsBytesOtherwise();
    void deliverErrors();
    [[nodiscard]] int bytesToRead() const;
    [[nodiscard]] std::uint32_t interest() const;

    std::string host_;
    std::uint32_t port_;
    int socket_ = -1;
    Link link_ = Link::None;
    mutable int bytesToldOf_ = 0;     ///< certain to be there, without asking the system
    bool bytesAnnounced_ = false;     ///< told once; not again before something was read
    bool spaceToBeAnnounced_ = false; ///< after opening, and after each write
    bool wasReset_ = false;           ///< as a write has been told; the system tells it once
    sd_event_source* socketSource_ = nullptr;
    sd_event_source* failureSource_ = nullptr;
};

Connection::~Connection() {
    sd_event_source_disable_unref(socketSource_);
    sd_event_source_disable_unref(failureSource_);
    if (socket_ >= 0)
        ::close(socket_);
}

void Connection::open(Direction& direction) {
    if (direction.status != Status::NotOpen)
        return;
    direction.status = Status::Opening;
    if (link_ == Link::None)
        beginConnecting();
    listen();
}

void Connection::schedule(Direction& direction, linux_backend::RunLoop& runLoop) {
    direction.runLoop = &runLoop;
    listen();
}

void Connection::release(Direction& direction) {
    direction = Direction();
    updateInterest();
}

/// Starts connecting, or notes that this is hopeless. Either way the outcome is delivered later.
void Connection::beginConnecting() {
    link_ = Link::Failed;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    // Only numeric addresses: looking up a name would make the caller wait.
    if (::inet_pton(AF_INET, host_.c_str(), &address.sin_addr) != 1)
        return;
    if (port_ > std::numeric_limits<in_port_t>::max())
        return;
    address.sin_port = htons(static_cast<in_port_t>(port_));

    socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket_ < 0)
        return;
    const int result =
        ::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (result == 0 || errno == EINPROGRESS || errno == EINTR)
        link_ = Link::Connecting;
}

/// Has the run loop watch the socket, as soon as a stream is both open and scheduled.
void Connection::listen() {
    for (const Direction* direction : {&input, &output}) {
        if (!direction->isLive() || direction->runLoop == nullptr)
            continue;
        sd_event* const event = direction->runLoop->event();
        if (link_ != Link::Failed && socketSource_ == nullptr && !watchSocket(event))
            link_ = Link::Failed;
        if (link_ == Link::Failed)
            announceFailure(event);
    }
    updateInterest();
}

bool Connection::watchSocket(sd_event* event) {
    const auto handler = [](sd_event_source*, int, std::uint32_t events, void* self) {
        static_cast<Connection*>(self)->handleEvents(events);
        return 0;
    };
    return sd_event_add_io(event, &socketSource_, socket_, interest(), handler, this) >= 0;
}

/// Has the run loop deliver errors at its next turn, never from within the caller.
void Connection::announceFailure(sd_event* event) {
    const auto handler = [](sd_event_source*, void* self) {
        static_cast<Connection*>(self)->handleEvents(EPOLLERR);
        return 0;
    };
    require(failureSource_ == nullptr
                ? sd_event_add_defer(event, &failureSource_, handler, this)
                : sd_event_source_set_enabled(failureSource_, SD_EVENT_ONESHOT));
}

std::uint32_t Connection::interest() const {
    std::uint32_t events = 0;
    if (input.status == Status::Open && !bytesAnnounced_)
        events |= EPOLLIN;
    if (input.awaitsOpening() || output.awaitsOpening() ||
        (output.status == Status::Open && spaceToBeAnnounced_))
        events |= EPOLLOUT;
    return events;
}

void Connection::updateInterest() {
    if (socketSource_ == nullptr)
        return;
    if (input.isLive() || output.isLive())
        require(sd_event_source_set_io_events(socketSource_, interest()));
    else
        socketSource_ = sd_event_source_disable_unref(socketSource_);
}

void Connection::handleEvents(std::uint32_t events) {
    const std::shared_ptr<Connection> keptAlive = shared_from_this();
    if (link_ == Link::Connecting)
        finishConnecting();
    if (link_ == Link::Established) {
        const bool isBroken = (events & (EPOLLERR | EPOLLHUP)) != 0;
        deliverOpenCompleted();
        if (output.status == Status::Open && spaceToBeAnnounced_ && !isBroken &&
            (events & EPOLLOUT) != 0) {
            spaceToBeAnnounced_ = false;
            deliver(output, NSStreamEvent::HasSpaceAvailable);
        }
        // What had arrived before the connection broke is still there to be read.
        if ((events & EPOLLIN) != 0 && input.status == Status::Open && !bytesAnnounced_)
            deliverInput();
        else if (isBroken)
            link_ = Link::Failed;
    }
    if (link_ == Link::Failed)
        deliverErrors();
    updateInterest();
}

void Connection::finishConnecting() {
    int error = 0;
    socklen_t size = sizeof error;
    const bool isConnected =
        ::getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
    link_ = isConnected ? Link::Established : Link::Failed;
}

void Connection::deliverOpenCompleted() {
    for (Direction* direction : {&input, &output}) {
        if (!direction->awaitsOpening())
            continue;
        direction->status = Status::Open;
        if (direction == &output)
            spaceToBeAnnounced_ = true;
        deliver(*direction, NSStreamEvent::OpenCompleted);
    }
}

/// The socket is readable: there are bytes, or the peer has closed, or the connection is broken.
void Connection::deliverInput() {
    if (bytesToRead() == 0 && !findsBytesOtherwise())
        return;
    bytesAnnounced_ = true;
    deliver(input, NSStreamEvent::HasBytesAvailable);
}

/// The system counts no bytes. Gives whether there are some all the same (it does not count past an
/// urgent byte), and otherwise deals with the end or the error that there is.
bool Connection::findsBytesOtherwise() {
    std::uint8_t byte = 0;
    const ssize_t result = ::recv(socket_, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT);
    if (result > 0) {
        bytesToldOf_ = 1;
        return true;
    }
    if (result == 0 && !wasReset_) {
        input.status = Status::AtEnd;
        deliver(input, NSStreamEvent::EndEncountered);
    } else if (result == 0 || (errno != EAGAIN && errno != EINTR)) {
        link_ = Link::Failed;
    }
    return false;
}

void Connection::deliverErrors() {
    for (Direction* direction : {&input, &output}) {
        if (!direction->isLive() || direction->runLoop == nullptr)
            continue;
        direction->status = Status::Error;
        deliver(*direction, NSStreamEvent::ErrorOccurred);
    }
}

/// What is there to be read at the least. The system is asked again only when all that it told of
/// has been read.
int Connection::bytesToRead() const {
    if (bytesToldOf_ == 0 && ::ioctl(socket_, FIONREAD, &bytesToldOf_) != 0)
        bytesToldOf_ = 0;
    return bytesToldOf_;
}

bool Connection::hasBytesAvailable() const {
    return input.status == Status::Open && link_ != Link::Failed && bytesToRead() > 0;
}

std::int64_t Connection::read(std::uint8_t* buffer, std::size_t maxLength) {
    if (input.status == Status::AtEnd)
        return 0;
    if (input.status != Status::Open)
        return -1;
    const ssize_t count = ::recv(socket_, buffer, maxLength, MSG_DONTWAIT);
    // Nothing is available after a failure, or a reader's loop might never end. It is told of once
    // the reader has returned.
    if (count < 0 && errno != EAGAIN && errno != EINTR)
        link_ = Link::Failed;
    bytesToldOf_ = count > 0 && count < bytesToldOf_ ? bytesToldOf_ - static_cast<int>(count) : 0;
    if (bytesAnnounced_) {
        bytesAnnounced_ = false;
        updateInterest();
    }
    return count;
}

std::int64_t Connection::write(const std::uint8_t* bytes, std::size_t length) {
    if (output.status != Status::Open)
        return -1;
    const ssize_t count = ::send(socket_, bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0 && (errno == ECONNRESET || errno == EPIPE))
        wasReset_ = true;
    spaceToBeAnnounced_ = true;
    updateInterest();
    return count;
}

/// What the two streams have in common: one direction of a shared connection.
template <typename Base, Direction Connection::*member> class SocketStream : public Base {
public:
    explicit SocketStream(std::shared_ptr<Connection> connection)
        : connection_(std::move(connection)) {
        direction().stream = this;
    }
    ~SocketStream() override { connection_->release(direction()); }
    SocketStream(const SocketStream&) = delete;
    SocketStream& operator=(const SocketStream&) = delete;

    void setDelegate(NSStreamDelegate* delegate) override { direction().delegate = delegate; }

    void scheduleInRunLoop(NSRunLoop& runLoop, std::string_view mode) override {
        if (mode == NSDefaultRunLoopMode) // the only mode that run loops here ever run in
            connection_->schedule(direction(), static_cast<linux_backend::RunLoop&>(runLoop));
    }

    void open() override { connection_->open(direction()); }

    [[nodiscard]] bool isEqual(const NSStream& other) const override { return this == &other; }

protected:
    [[nodiscard]] Connection& connection() const { return *connection_; }

private:
    Direction& direction() { return (*connection_).*member; }

    std::shared_ptr<Connection> connection_;
};

class SocketInputStream : public SocketStream<NSInputStream, &Connection::input> {
public:
    using SocketStream::SocketStream;

    [[nodiscard]] bool hasBytesAvailable() const override {
        return connection().hasBytesAvailable();
    }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        return connection().read(buffer, maxLength);
    }
};

class SocketOutputStream : public SocketStream<NSOutputStream, &Connection::output> {
public:
    using SocketStream::SocketStream;

    std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
        return connection().write(bytes, length);
    }
};

} // namespace

void CFStreamCreatePairWithSocketToHost(const std::string& host, std::uint32_t port,
                                        std::shared_ptr<NSInputStream>& readStream,
                                        std::shared_ptr<NSOutputStream>& writeStream) {
    const auto connection = std::make_shared<Connection>(host, port);
    readStream = std::make_shared<SocketInputStream>(connection);
    writeStream = std::make_shared<SocketOutputStream>(connection);
}

} // namespace platform

#include "platform/linux/SocketConnection.h"

#include "platform/System.h"
#include "platform/linux/Log.h"
#include "platform/linux/PeerUser.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <limits>
#include <netinet/in.h>
#include <optional>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform::linux_backend {

namespace {

void deliver(const Direction& direction, NSStreamEvent event) {
    if (direction.stream != nullptr && direction.delegate != nullptr)
        direction.delegate->stream(*direction.stream, event);
}

/// Ends the process: without its events, the connection would fail silently.
void require(int result) {
    if (result < 0)
        fatalError(std::string("the link cannot be watched: ") + std::strerror(-result));
}

} // namespace

void SocketConnection::open(Direction& direction) {
    if (direction.status != Status::NotOpen)
        return;
    direction.status = Status::Opening;
    if (state_ == SocketState::None)
        beginConnecting();
    listen();
}

void SocketConnection::schedule(Direction& direction, RunLoop& runLoop) {
    direction.runLoop = &runLoop;
    listen();
}

void SocketConnection::release(Direction& direction) {
    direction = Direction();
    updateInterest();
}

/// Starts connecting, or sets the state to Failed. The outcome is delivered later in both cases.
void SocketConnection::beginConnecting() {
    state_ = SocketState::Failed;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    // Only numeric addresses: resolving a name would block the caller.
    if (::inet_pton(AF_INET, host_.c_str(), &address.sin_addr) != 1)
        return;
    if (port_ > std::numeric_limits<in_port_t>::max())
        return;
    address.sin_port = htons(static_cast<in_port_t>(port_));

    socket_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket_)
        return;
    const int result =
        ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (result == 0 || errno == EINPROGRESS || errno == EINTR)
        state_ = SocketState::Connecting;
}

/// Adds the socket to the run loop once a stream is both open and scheduled.
void SocketConnection::listen() {
    for (const Direction* direction : {&input, &output}) {
        if (!direction->isLive() || direction->runLoop == nullptr)
            continue;
        sd_event* const event = direction->runLoop->event();
        if (state_ != SocketState::Failed && !socketSource_ && !watchSocket(event))
            state_ = SocketState::Failed;
        if (state_ == SocketState::Failed)
            announceFailure(event);
    }
    updateInterest();
}

bool SocketConnection::watchSocket(sd_event* event) {
    const auto handler = [](sd_event_source*, int, std::uint32_t events, void* self) {
        static_cast<SocketConnection*>(self)->handleEvents(events);
        return 0;
    };
    return sd_event_add_io(event, process::Out(socketSource_), socket_.get(), interest(), handler,
                           this) >= 0;
}

/// Delivers errors at the run loop's next turn, never from within the caller.
void SocketConnection::announceFailure(sd_event* event) {
    const auto handler = [](sd_event_source*, void* self) {
        static_cast<SocketConnection*>(self)->handleEvents(EPOLLERR);
        return 0;
    };
    require(!failureSource_ ? sd_event_add_defer(event, process::Out(failureSource_), handler, this)
                            : sd_event_source_set_enabled(failureSource_.get(), SD_EVENT_ONESHOT));
}

std::uint32_t SocketConnection::interest() const {
    std::uint32_t events = 0;
    if (input.status == Status::Open && !bytesAnnounced_)
        events |= EPOLLIN;
    if (input.awaitsOpening() || output.awaitsOpening() ||
        (output.status == Status::Open && spaceToBeAnnounced_))
        events |= EPOLLOUT;
    return events;
}

void SocketConnection::updateInterest() {
    if (!socketSource_)
        return;
    if (input.isLive() || output.isLive())
        require(sd_event_source_set_io_events(socketSource_.get(), interest()));
    else
        socketSource_.reset();
}

void SocketConnection::handleEvents(std::uint32_t events) {
    const std::shared_ptr<SocketConnection> keptAlive = shared_from_this();
    if (state_ == SocketState::Connecting)
        finishConnecting();
    if (state_ == SocketState::Established) {
        const bool isBroken = (events & (EPOLLERR | EPOLLHUP)) != 0;
        deliverOpenCompleted();
        if (output.status == Status::Open && spaceToBeAnnounced_ && !isBroken &&
            (events & EPOLLOUT) != 0) {
            spaceToBeAnnounced_ = false;
            deliver(output, NSStreamEvent::HasSpaceAvailable);
        }
        // Bytes that arrived before the connection broke can still be read.
        if ((events & EPOLLIN) != 0 && input.status == Status::Open && !bytesAnnounced_)
            deliverInput();
        else if (isBroken)
            state_ = SocketState::Failed;
    }
    if (state_ == SocketState::Failed)
        deliverErrors();
    updateInterest();
}

void SocketConnection::finishConnecting() {
    int error = 0;
    socklen_t size = sizeof error;
    const bool isConnected =
        ::getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
    if (isConnected && peerIsOurUser()) {
        state_ = SocketState::Established;
        return;
    }
    state_ = SocketState::Failed;
    socketSource_.reset();
    socket_.reset();
}

/// Whether the companion is a process of our own user, and not another user's on the same port.
bool SocketConnection::peerIsOurUser() const {
    const std::optional<uid_t> user = peerUser(socket_.get());
    if (user == ::geteuid())
        return true;
    log(Level::Warning, "no link: port " + std::to_string(port_) + " belongs to " +
                            (user ? "user " + std::to_string(*user) : "an unknown user") +
                            ", not to user " + std::to_string(::geteuid()));
    return false;
}

void SocketConnection::deliverOpenCompleted() {
    for (Direction* direction : {&input, &output}) {
        if (!direction->awaitsOpening())
            continue;
        direction->status = Status::Open;
        if (direction == &output)
            spaceToBeAnnounced_ = true;
        deliver(*direction, NSStreamEvent::OpenCompleted);
    }
}

/// The socket is readable: it has bytes, or the peer has closed it, or it has failed.
void SocketConnection::deliverInput() {
    if (bytesToRead() == 0 && !findsBytesOtherwise())
        return;
    bytesAnnounced_ = true;
    deliver(input, NSStreamEvent::HasBytesAvailable);
}

/// Called when FIONREAD returns 0. Returns true if there are bytes nevertheless, which FIONREAD
/// does not count after an urgent byte; otherwise handles the end or the error.
bool SocketConnection::findsBytesOtherwise() {
    std::uint8_t byte = 0;
    const ssize_t result = ::recv(socket_.get(), &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT);
    if (result > 0) {
        bytesToldOf_ = 1;
        return true;
    }
    if (result == 0 && !wasReset_) {
        input.status = Status::AtEnd;
        deliver(input, NSStreamEvent::EndEncountered);
    } else if (result == 0 || (errno != EAGAIN && errno != EINTR)) {
        state_ = SocketState::Failed;
    }
    return false;
}

void SocketConnection::deliverErrors() {
    for (Direction* direction : {&input, &output}) {
        if (!direction->isLive() || direction->runLoop == nullptr)
            continue;
        direction->status = Status::Error;
        deliver(*direction, NSStreamEvent::ErrorOccurred);
    }
}

/// A lower bound of the readable bytes. Calls FIONREAD only when everything that it reported before
/// has been read.
int SocketConnection::bytesToRead() const {
    if (bytesToldOf_ == 0 && ::ioctl(socket_.get(), FIONREAD, &bytesToldOf_) != 0)
        bytesToldOf_ = 0;
    return bytesToldOf_;
}

bool SocketConnection::hasBytesAvailable() const {
    return input.status == Status::Open && state_ != SocketState::Failed && bytesToRead() > 0;
}

std::int64_t SocketConnection::read(std::uint8_t* buffer, std::size_t maxLength) {
    if (input.status == Status::AtEnd)
        return 0;
    if (input.status != Status::Open)
        return -1;
    const ssize_t count = ::recv(socket_.get(), buffer, maxLength, MSG_DONTWAIT);
    // hasBytesAvailable must be false after a failure, or a reader's loop might never end. The
    // error event follows once the reader has returned.
    if (count < 0 && errno != EAGAIN && errno != EINTR)
        state_ = SocketState::Failed;
    bytesToldOf_ = count > 0 && count < bytesToldOf_ ? bytesToldOf_ - static_cast<int>(count) : 0;
    if (bytesAnnounced_) {
        bytesAnnounced_ = false;
        updateInterest();
    }
    return count;
}

std::int64_t SocketConnection::write(const std::uint8_t* bytes, std::size_t length) {
    if (output.status != Status::Open)
        return -1;
    const ssize_t count = ::send(socket_.get(), bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0 && (errno == ECONNRESET || errno == EPIPE))
        wasReset_ = true;
    spaceToBeAnnounced_ = true;
    updateInterest();
    return count;
}

} // namespace platform::linux_backend

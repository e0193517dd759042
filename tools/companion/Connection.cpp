#include "tools/companion/Connection.h"

#include "tools/companion/Commands.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace companion {

namespace {

constexpr std::size_t readSize = std::size_t{64} * 1024;

void setOption(int socket, int option, int value) {
    (void)::setsockopt(socket, IPPROTO_TCP, option, &value, sizeof value);
}

/// Whether a segment of this connection has the size of a padded line.
bool hasSegmentsOfLineSize(int socket) {
    int size = 0;
    socklen_t length = sizeof size;
    return ::getsockopt(socket, IPPROTO_TCP, TCP_MAXSEG, &size, &length) == 0 &&
           size == static_cast<int>(lineLimit);
}

} // namespace

Connection::Connection(process::Descriptor socket, Outbox& outbox, ConnectionObserver& observer)
    : socket_(std::move(socket)), outbox_(outbox), observer_(observer) {
    setOption(socket_.get(), TCP_NODELAY, 1);
    // Makes the socket count as writable only once all that was written before has been sent.
    setOption(socket_.get(), TCP_NOTSENT_LOWAT, 1);
    setOnlyWholeSegments(hasSegmentsOfLineSize(socket_.get()));
}

int Connection::serve(sd_event* event) {
    return sd_event_add_io(event, process::Out(source_), socket_.get(), EPOLLIN, handleEvents,
                           this);
}

void Connection::sendWaitingLines() {
    if (!outbox_.isEmpty())
        setSending(true);
}

void Connection::finish() {
    (void)::shutdown(socket_.get(), SHUT_WR);
    std::string reason;
    while (readOnce(reason) == ReadResult::Continue) {
    }
}

int Connection::handleEvents(sd_event_source*, int, std::uint32_t events, void* self) noexcept {
    auto& connection = *static_cast<Connection*>(self);
    // Reading comes first, so that the last reports are printed when the peer is gone.
    std::string reason;
    if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0 &&
        connection.readOnce(reason) == ReadResult::End)
        connection.observer_.connectionLost(reason);
    else if ((events & EPOLLOUT) != 0)
        connection.becameWritable();
    return 0;
}

void Connection::becameWritable() {
    if (outbox_.isEmpty()) {
        setSending(false);
        observer_.everythingSent();
        return;
    }
    int result = 0;
    while (result == 0 && !outbox_.isEmpty()) {
        if (hasOnlyWholeSegments_ && outbox_.first().size() != lineLimit)
            setOnlyWholeSegments(false);
        result = outbox_.writeFirst(socket_.get());
    }
    // Reading notices a lost connection and says why.
    if (result != 0 && result != EAGAIN)
        setSending(false);
    else
        observer_.linesTaken();
}

void Connection::setSending(bool isSending) {
    isSending_ = isSending;
    (void)sd_event_source_set_io_events(source_.get(), isSending ? EPOLLIN | EPOLLOUT : EPOLLIN);
}

/// Makes the system send only segments of full size, or everything at once. When a segment has the
/// size of a padded line, a receive window that fills up cannot cut such a line in two.
void Connection::setOnlyWholeSegments(bool isOn) {
    hasOnlyWholeSegments_ = isOn;
    setOption(socket_.get(), TCP_CORK, isOn ? 1 : 0);
}

Connection::ReadResult Connection::readOnce(std::string& reason) {
    std::array<char, readSize> buffer{};
    const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return ReadResult::NothingMore;
    if (count < 0) {
        reason = std::strerror(errno);
        return ReadResult::End;
    }
    if (count == 0) {
        reason = "it has closed the link";
        return ReadResult::End;
    }
    if (observer_.bytesArrived({buffer.data(), static_cast<std::size_t>(count)}))
        return ReadResult::Continue;
    reason = "what it sent is no click report";
    return ReadResult::End;
}

} // namespace companion

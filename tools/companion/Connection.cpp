#include "tools/companion/Connection.h"

#include "tools/companion/Commands.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

namespace companion {

namespace {

constexpr std::size_t socketReadSize = std::size_t{64} * 1024;
constexpr std::uint64_t pollInterval = 250; // microseconds

void setOption(int socket, int option, int value) {
    (void)::setsockopt(socket, IPPROTO_TCP, option, &value, sizeof value);
}

/// Whether a padded line arrives in one piece: nothing is on its way, and the peer's receive window
/// has room for the whole line. TCP fills a smaller window with the beginning of the line.
bool hasRoomForPaddedLine(int socket) {
    int unacknowledged = 0;
    tcp_info info{};
    socklen_t length = sizeof info;
    if (::ioctl(socket, SIOCOUTQ, &unacknowledged) != 0 ||
        ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &length) != 0)
        return true; // the connection is lost, which sending finds out
    return unacknowledged == 0 && info.tcpi_snd_wnd >= lineLimit;
}

} // namespace

Connection::Connection(process::Descriptor socket, Outbox& outbox, ConnectionObserver& observer)
    : socket_(std::move(socket)), outbox_(outbox), observer_(observer) {
    setOption(socket_.get(), TCP_NODELAY, 1);
    // Makes the socket count as writable only once all that was written before has been sent.
    setOption(socket_.get(), TCP_NOTSENT_LOWAT, 1);
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
        if (outbox_.first().size() == lineLimit && !hasRoomForPaddedLine(socket_.get())) {
            waitForRoom();
            break;
        }
        result = outbox_.writeFirst(socket_.get());
    }
    // Reading notices a lost connection and says why.
    if (result != 0 && result != EAGAIN)
        setSending(false);
    else
        observer_.linesTaken();
}

/// Tries again soon: no event tells of an acknowledgement or a larger window.
void Connection::waitForRoom() {
    const auto handler = [](sd_event_source*, std::uint64_t, void* self) {
        static_cast<Connection*>(self)->watch(EPOLLIN | EPOLLOUT);
        return 0;
    };
    if (sd_event_add_time_relative(sd_event_source_get_event(source_.get()), process::Out(timer_),
                                   CLOCK_MONOTONIC, pollInterval, 1, handler, this) >= 0)
        watch(EPOLLIN);
}

void Connection::setSending(bool isSending) {
    isSending_ = isSending;
    watch(isSending ? EPOLLIN | EPOLLOUT : EPOLLIN);
}

void Connection::watch(std::uint32_t events) {
    (void)sd_event_source_set_io_events(source_.get(), events);
}

Connection::ReadResult Connection::readOnce(std::string& reason) {
    std::array<char, socketReadSize> buffer{};
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

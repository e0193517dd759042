// Has been compiled for macOS, and never run there.

#include "companion/System.h"

#include "finder_sync_companion/Companion.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/event.h>
#include <sys/socket.h>

namespace finder_sync {

namespace {

int change(int queue, std::uintptr_t identifier, std::int16_t filter, std::uint16_t flags,
           std::uint32_t filterFlags, std::intptr_t data) {
    const struct kevent event = {identifier, filter, flags, filterFlags, data, nullptr};
    return ::kevent(queue, &event, 1, nullptr, 0, nullptr) == 0 ? 0 : errno;
}

} // namespace

int Poller::open() {
    queue_.reset(::kqueue());
    return queue_ ? 0 : errno;
}

int Poller::watch(int descriptor) {
    return change(queue_.get(), static_cast<std::uintptr_t>(descriptor), EVFILT_READ, EV_ADD, 0, 0);
}

void Poller::unwatch(int descriptor) {
    (void)change(queue_.get(), static_cast<std::uintptr_t>(descriptor), EVFILT_READ, EV_DELETE, 0,
                 0);
}

void Poller::wakeAfter(std::chrono::microseconds delay) {
    (void)change(queue_.get(), 0, EVFILT_TIMER, EV_ADD | EV_ONESHOT, NOTE_USECONDS, delay.count());
}

std::vector<int> Poller::ready() {
    std::array<struct kevent, 64> events{};
    const timespec noTime{};
    const int count = ::kevent(queue_.get(), nullptr, 0, events.data(), events.size(), &noTime);
    std::vector<int> descriptors;
    for (int index = 0; index < count; ++index) {
        const struct kevent& event = events[static_cast<std::size_t>(index)];
        if (event.filter == EVFILT_READ)
            descriptors.push_back(static_cast<int>(event.ident));
    }
    return descriptors;
}

bool hasRoomForBlock(int socket) {
    tcp_connection_info info{};
    socklen_t length = sizeof info;
    return ::getsockopt(socket, IPPROTO_TCP, TCP_CONNECTION_INFO, &info, &length) == 0 &&
           info.tcpi_snd_sbbytes == 0 && info.tcpi_snd_wnd >= blockSize;
}

bool isOfSameUser(int) {
    return true;
}

process::Descriptor openSocket() {
    process::Descriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
    makePrivate(socket.get());
    return socket;
}

process::Descriptor acceptFrom(int listener) {
    process::Descriptor socket(::accept(listener, nullptr, nullptr));
    if (socket)
        makePrivate(socket.get());
    return socket;
}

bool openPipe(process::Descriptor& output, process::Descriptor& input) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0)
        return false;
    output.reset(ends[0]);
    input.reset(ends[1]);
    makePrivate(output.get());
    return ::fcntl(input.get(), F_SETFD, FD_CLOEXEC) == 0;
}

void makePrivate(int descriptor) {
    const int one = 1;
    (void)::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    (void)::fcntl(descriptor, F_SETFL, O_NONBLOCK);
    (void)::setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &one, sizeof one);
}

} // namespace finder_sync

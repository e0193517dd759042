#include "companion/System.h"

#include "finder_sync_companion/Companion.h"
#include "process/TCPTable.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <tuple>

namespace finder_sync {

int Poller::open() {
    queue_.reset(::epoll_create1(EPOLL_CLOEXEC));
    timer_.reset(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    return queue_ && timer_ ? watch(timer_.get()) : errno;
}

int Poller::watch(int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    return ::epoll_ctl(queue_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0 ? 0 : errno;
}

void Poller::unwatch(int descriptor) {
    (void)::epoll_ctl(queue_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

void Poller::wakeAfter(std::chrono::microseconds delay) {
    itimerspec time{};
    time.it_value.tv_nsec = std::chrono::nanoseconds(delay).count();
    (void)::timerfd_settime(timer_.get(), 0, &time, nullptr);
}

std::vector<int> Poller::ready() {
    std::array<epoll_event, 64> events{};
    const int count = ::epoll_wait(queue_.get(), events.data(), events.size(), 0);
    std::vector<int> descriptors;
    for (int index = 0; index < count; ++index) {
        const int descriptor = events[static_cast<std::size_t>(index)].data.fd;
        std::uint64_t expirations = 0;
        if (descriptor == timer_.get())
            std::ignore = ::read(descriptor, &expirations, sizeof expirations);
        else
            descriptors.push_back(descriptor);
    }
    return descriptors;
}

bool hasRoomForBlock(int socket) {
    int unacknowledged = 0;
    tcp_info info{};
    socklen_t length = sizeof info;
    // In this order, so that the window is not older than the acknowledgement.
    return ::ioctl(socket, SIOCOUTQ, &unacknowledged) == 0 &&
           ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 &&
           unacknowledged == 0 && info.tcpi_snd_wnd >= blockSize;
}

bool isOfSameUser(int socket) {
    sockaddr_in own{};
    sockaddr_in peer{};
    socklen_t length = sizeof own;
    const auto generic = [](sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); };
    if (::getsockname(socket, generic(own), &length) != 0 ||
        ::getpeername(socket, generic(peer), &length) != 0)
        return false;
    using process::Endpoint;
    bool isSame = false;
    process::visitTCPSockets("/proc/self/net/tcp", [&](const process::TCPSocket& entry) {
        if (entry.local != Endpoint::of(peer) || entry.remote != Endpoint::of(own))
            return true;
        isSame = entry.isOwned && entry.user == ::getuid();
        return false;
    });
    return isSame;
}

process::Descriptor openSocket() {
    return process::Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

process::Descriptor acceptFrom(int listener) {
    return process::Descriptor(::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

bool openPipe(process::Descriptor& output, process::Descriptor& input) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return false;
    output.reset(ends[0]);
    input.reset(ends[1]);
    return ::fcntl(output.get(), F_SETFL, O_NONBLOCK) == 0;
}

void makePrivate(int descriptor) {
    (void)::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    (void)::fcntl(descriptor, F_SETFL, O_NONBLOCK);
}

} // namespace finder_sync

#include "companion/Links.h"

#include "finder_sync_companion/Companion.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>

namespace finder_sync {

namespace {

using std::chrono::microseconds;

constexpr std::size_t readSize = std::size_t{64} * 1024;

// No event tells of an acknowledgement or a larger window: it is looked for ever less often.
constexpr int looksWithoutPause = 20;
constexpr microseconds shortestPause{100};
constexpr microseconds longestPause{5000};

/// A connection waits so long when no descriptor is left for it.
constexpr microseconds pauseOfAccepting{100'000};

#ifdef MSG_NOSIGNAL
constexpr int sendFlags = MSG_NOSIGNAL;
#else
constexpr int sendFlags = 0; // the socket has an option instead
#endif

/// Reads once. Returns why the link has ended, none if it has not; `isEmpty` tells whether nothing
/// was left to read.
std::optional<std::string> readOnce(int socket, Dialogue& dialogue, bool& isEmpty) {
    std::array<char, readSize> buffer; // NOLINT(*-member-init)
    const ssize_t count = ::recv(socket, buffer.data(), buffer.size(), 0);
    isEmpty = count < 0;
    if (count == 0)
        return "the extension has closed the connection";
    if (count < 0)
        return errno == EAGAIN || errno == EINTR ? std::nullopt
                                                 : std::optional(std::strerror(errno));
    std::string failure = dialogue.receive({buffer.data(), static_cast<std::size_t>(count)});
    return failure.empty() ? std::nullopt : std::optional(std::move(failure));
}

bool hasRoom(int socket) {
    for (int looks = 0; looks < looksWithoutPause; ++looks) {
        if (hasRoomForBlock(socket))
            return true;
    }
    return false;
}

/// Sends what there is room for. Returns whether that was anything.
bool send(int socket, Dialogue& dialogue) {
    bool hasSent = false;
    while (dialogue.hasMore() && hasRoom(socket)) {
        const auto block = dialogue.nextBlock();
        if (!block)
            break;
        const ssize_t count = ::send(socket, block->data(), block->size(), sendFlags);
        if (count != static_cast<ssize_t>(block->size()))
            (void)::shutdown(socket, SHUT_RDWR); // lost; reading comes to its end
        hasSent = true;
    }
    return hasSent;
}

} // namespace

int Links::listen(std::uint16_t port) {
    int result = poller_.open();
    if (result == 0)
        result = listener_.listen(port);
    if (result == 0)
        result = poller_.watch(listener_.socket());
    return result;
}

std::vector<int> Links::dispatch() {
    if (std::exchange(acceptsLater_, false))
        acceptsLater_ = poller_.watch(listener_.socket()) != 0;
    std::vector<int> others;
    for (const int descriptor : poller_.ready()) {
        if (descriptor == listener_.socket())
            accept();
        else if (const auto link = std::ranges::find(
                     links_, descriptor, [](const Link& each) { return each.socket.get(); });
                 link != links_.end())
            read(link);
        else
            others.push_back(descriptor);
    }
    sendAll();
    return others;
}

void Links::finish() {
    for (const Link& link : links_) {
        (void)::shutdown(link.socket.get(), SHUT_WR);
        bool isEmpty = false;
        while (!isEmpty && !readOnce(link.socket.get(), link.dialogue, isEmpty)) {
        }
    }
}

void Links::accept() {
    // Finding out whose a connection is takes a descriptor too. Without it, the user's own
    // extension would be turned away, which connects only once.
    process::Descriptor spare(::fcntl(listener_.socket(), F_DUPFD_CLOEXEC, 0));
    process::Descriptor accepted = spare ? acceptFrom(listener_.socket()) : process::Descriptor();
    if (!accepted && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
        poller_.unwatch(listener_.socket());
        acceptsLater_ = true;
    }
    spare.reset();
    if (!accepted || !isOfSameUser(accepted.get()) || poller_.watch(accepted.get()) != 0)
        return;
    if (Dialogue* const dialogue = callbacks_.onConnected())
        links_.push_back({std::move(accepted), *dialogue});
}

void Links::read(std::list<Link>::iterator link) {
    bool isEmpty = false;
    const auto end = readOnce(link->socket.get(), link->dialogue, isEmpty);
    if (!end)
        return;
    Dialogue& dialogue = link->dialogue;
    links_.erase(link);
    callbacks_.onDisconnected(dialogue, *end);
}

void Links::sendAll() {
    bool hasSent = false;
    bool isWaiting = false;
    for (const Link& link : links_) {
        hasSent = send(link.socket.get(), link.dialogue) || hasSent;
        isWaiting = isWaiting || link.dialogue.hasMore();
    }
    pause_ = hasSent ? shortestPause : std::clamp(2 * pause_, shortestPause, longestPause);
    if (isWaiting)
        poller_.wakeAfter(pause_);
    else if (acceptsLater_)
        poller_.wakeAfter(pauseOfAccepting);
}

} // namespace finder_sync

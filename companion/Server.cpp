#include "finder_sync_companion/Server.h"

#include "companion/Listener.h"
#include "companion/Restart.h"
#include "companion/System.h"
#include "finder_sync_companion/Settings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <list>
#include <sys/socket.h>
#include <utility>

namespace finder_sync {

namespace {

using std::chrono::microseconds;

constexpr std::size_t readSize = std::size_t{64} * 1024;

// No event tells of an acknowledgement or a larger window: it is looked for ever less often.
constexpr int looksWithoutPause = 20;
constexpr microseconds shortestPause{100};
constexpr microseconds longestPause{5000};

#ifdef MSG_NOSIGNAL
constexpr int sendFlags = MSG_NOSIGNAL;
#else
constexpr int sendFlags = 0; // the socket has an option instead
#endif

std::string withoutLinks(const std::string& path) {
    std::error_code error;
    const auto resolved = std::filesystem::weakly_canonical(path, error);
    return error ? std::string() : resolved.string();
}

/// One extension that has connected.
class Link {
public:
    Link(process::Descriptor socket, const Companion& companion)
        : companion_(companion), socket_(std::move(socket)), connection_(companion, withoutLinks) {}

    [[nodiscard]] int socket() const { return socket_.get(); }

    /// Why it has ended, empty as long as it has not.
    [[nodiscard]] const std::string& end() const { return end_; }

    std::vector<Report> receive() {
        std::array<char, readSize> buffer; // NOLINT(*-member-init)
        const ssize_t count = ::recv(socket(), buffer.data(), buffer.size(), 0);
        if (count == 0)
            end_ = "the extension has closed the connection";
        else if (count < 0 && errno != EAGAIN && errno != EINTR)
            end_ = std::strerror(errno);
        if (count <= 0)
            return {};
        auto reports = connection_.receive({buffer.data(), static_cast<std::size_t>(count)});
        if (connection_.failed())
            end_ = *connection_.failed();
        return reports;
    }

    /// Sends what there is room for. Returns whether that was anything.
    bool send() {
        bool hasSent = false;
        while (hasMore() && hasRoom()) {
            const auto block = connection_.nextBlock();
            if (!block) {
                toldVersion_ = companion_.version();
                break;
            }
            const ssize_t count = ::send(socket(), block->data(), block->size(), sendFlags);
            if (count != static_cast<ssize_t>(block->size()))
                (void)::shutdown(socket(), SHUT_RDWR); // lost; reading comes to its end
            hasSent = true;
        }
        return hasSent;
    }

    /// Whether there is something to send, as far as is known.
    [[nodiscard]] bool hasMore() const { return toldVersion_ != companion_.version(); }

private:
    [[nodiscard]] bool hasRoom() const {
        for (int looks = 0; looks < looksWithoutPause; ++looks) {
            if (hasRoomForBlock(socket()))
                return true;
        }
        return false;
    }

    const Companion& companion_;
    process::Descriptor socket_;
    Connection connection_;
    std::string end_;
    std::uint64_t toldVersion_ = 0;
};

} // namespace

class Server::Implementation {
public:
    Implementation(Companion& companion, Callbacks callbacks)
        : companion_(companion), callbacks_(std::move(callbacks)) {
        companion_.setWatcher([this] { poller_.wakeAfter(microseconds(1)); });
    }
    ~Implementation() { companion_.setWatcher(nullptr); }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    bool listen(std::uint16_t port, std::string& failure) {
        int result = poller_.open();
        if (result == 0)
            result = listener_.listen(port);
        if (result == 0)
            result = poller_.watch(listener_.socket());
        if (result != 0)
            failure = "port " + std::to_string(port) +
                      " of 127.0.0.1 cannot be had: " + std::strerror(result);
        return result == 0;
    }

    void dispatch() {
        for (const int descriptor : poller_.ready())
            handle(descriptor);
        tellAll();
    }

    [[nodiscard]] const Companion& companion() const { return companion_; }

    bool restart(const std::string& group, std::string& failure, const std::string& program) {
        if (!restart_.start({program, "--group", group, "restart"}, failure))
            return false;
        if (poller_.watch(restart_.output()) == 0)
            return true;
        failure = "what " + program + " prints cannot be watched";
        return false;
    }

    Listener listener_;
    Poller poller_;
    std::list<Link> links_;

private:
    void handle(int descriptor) {
        if (descriptor == listener_.socket())
            accept();
        else if (descriptor == restart_.output())
            readFromRestart();
        else
            readFrom(descriptor);
    }

    void accept() {
        process::Descriptor accepted(::accept(listener_.socket(), nullptr, nullptr));
        if (!accepted || !isOfSameUser(accepted.get()) || poller_.watch(accepted.get()) != 0)
            return;
        makePrivate(accepted.get());
        links_.emplace_back(std::move(accepted), companion_);
        if (callbacks_.onConnected)
            callbacks_.onConnected();
    }

    void readFrom(int socket) {
        const auto link = std::ranges::find(links_, socket, &Link::socket);
        if (link == links_.end())
            return;
        for (const Report& report : link->receive())
            callbacks_.onReport(report);
        if (link->end().empty())
            return;
        const std::string reason = link->end();
        links_.erase(link);
        if (callbacks_.onDisconnected)
            callbacks_.onDisconnected(reason);
    }

    void readFromRestart() {
        std::string failure;
        if (restart_.hasEnded(failure) && callbacks_.onRestarted)
            callbacks_.onRestarted(failure);
    }

    void tellAll() {
        bool hasSent = false;
        bool isWaiting = false;
        for (Link& link : links_) {
            hasSent = link.send() || hasSent;
            isWaiting = isWaiting || link.hasMore();
        }
        pause_ = hasSent ? shortestPause : std::min(2 * pause_, longestPause);
        if (isWaiting)
            poller_.wakeAfter(pause_);
    }

    Companion& companion_;
    Callbacks callbacks_;
    Restart restart_;
    microseconds pause_ = shortestPause;
};

Server::Server(Companion& companion, Callbacks callbacks)
    : implementation_(std::make_unique<Implementation>(companion, std::move(callbacks))) {}

Server::~Server() = default;

bool Server::listen(std::uint16_t port, std::string& failure) {
    return implementation_->listen(port, failure);
}

std::uint16_t Server::port() const {
    return implementation_->listener_.port();
}

int Server::descriptor() const {
    return implementation_->poller_.descriptor();
}

void Server::dispatch() {
    implementation_->dispatch();
}

std::size_t Server::connections() const {
    return implementation_->links_.size();
}

bool Server::writeSettings(const std::string& group, const std::string& rootFolder,
                           std::string& failure) const {
    Settings settings = {{"ServerPort", port()}, {"RootFolder", rootFolder}};
    const Companion& companion = implementation_->companion();
    if (const auto& titles = companion.titles()) {
        settings["ShareContactTitle"] = titles->shareContact;
        settings["ShareViaUrlTitle"] = titles->shareViaUrl;
        settings["BackupTitle"] = titles->backup;
    }
    if (const auto backup = companion.backup())
        settings["DisplayBackup"] = *backup ? 1 : 0;
    return finder_sync::writeSettings(group, settings, failure);
}

bool Server::restartExtension(const std::string& group, std::string& failure,
                              const std::string& program) {
    return implementation_->restart(group, failure, program);
}

} // namespace finder_sync

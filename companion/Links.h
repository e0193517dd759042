#pragma once

#include "companion/Listener.h"
#include "companion/System.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace finder_sync {

/// What is said on the link to one extension.
class Dialogue {
public:
    virtual ~Dialogue() = default;

    /// Whether there is something to send, as far as is known.
    [[nodiscard]] virtual bool hasMore() const = 0;

    /// The next bytes to send, at most `blockSize`; none if there is nothing to send. Is called
    /// once what was sent before is acknowledged and there is room for a block.
    [[nodiscard]] virtual std::optional<std::string> nextBlock() = 0;

    /// Takes what has arrived. Returns why the link has to be closed, empty if all is well.
    [[nodiscard]] virtual std::string receive(std::string_view bytes) = 0;
};

/// The links to all extensions of the user, behind one descriptor. Nothing here blocks.
class Links {
public:
    struct Callbacks {
        /// An extension has connected. Returns what to say to it, which stays until the link has
        /// ended, or null to close the link.
        std::function<Dialogue*()> onConnected;
        std::function<void(Dialogue& dialogue, const std::string& reason)> onDisconnected;
    };

    explicit Links(Callbacks callbacks) : callbacks_(std::move(callbacks)) {}

    /// Listens on the socket that systemd has passed, if any, else on a port of 127.0.0.1, 0 for a
    /// free one. Returns 0 or an errno.
    [[nodiscard]] int listen(std::uint16_t port);

    [[nodiscard]] std::uint16_t port() const { return listener_.port(); }

    /// Readable when there is something to dispatch.
    [[nodiscard]] int descriptor() const { return poller_.descriptor(); }

    /// Makes another descriptor part of it until that is closed. Returns 0 or an errno.
    [[nodiscard]] int watch(int descriptor) { return poller_.watch(descriptor); }

    /// Does what is to do now. Returns which of the other descriptors are readable.
    std::vector<int> dispatch();

    /// There is more to send: it becomes readable.
    void wake() { poller_.wakeAfter(std::chrono::microseconds(1)); }

    /// Sends nothing any more, and takes what has arrived until now.
    void finish();

private:
    struct Link {
        process::Descriptor socket;
        Dialogue& dialogue;
    };

    void accept();
    void read(std::list<Link>::iterator link);
    void sendAll();

    Callbacks callbacks_;
    Listener listener_;
    Poller poller_;
    std::list<Link> links_;
    bool acceptsLater_ = false;
    std::chrono::microseconds pause_{0};
};

} // namespace finder_sync

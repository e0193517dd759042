#pragma once

#include "finder_sync_companion/Companion.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace finder_sync {

/// Serves every extension of the user from the application's own event loop: watch `descriptor()`
/// for reading and call `dispatch()` when it is readable. Nothing here blocks. Writing to a
/// connection that is lost raises no SIGPIPE.
class Server {
public:
    /// Are called by `dispatch()`, and may call everything but it. They do not destroy the server.
    struct Callbacks {
        std::function<void(const Report& report)> onReport;
        std::function<void()> onConnected = nullptr;
        std::function<void(const std::string& reason)> onDisconnected = nullptr;
        /// What became of `restartExtension`: what is wrong, empty when it has connected.
        std::function<void(const std::string& failure)> onRestarted = nullptr;
    };

    /// Tells the companion's state, and each later change of it, to every extension. A companion,
    /// which outlives its server, has no more than one.
    Server(Companion& companion, Callbacks callbacks);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Listens on the socket that systemd has passed, if any, else on a port of 127.0.0.1, 0 for a
    /// free one. Connections of other users are closed before a byte is sent; on macOS nobody looks
    /// whose they are. Returns false on failure, and `failure` says what is wrong.
    [[nodiscard]] bool listen(std::uint16_t port, std::string& failure);

    /// The port that the extension has to connect to.
    [[nodiscard]] std::uint16_t port() const;

    /// Belongs to the server. Readable when there is something to dispatch.
    [[nodiscard]] int descriptor() const;

    /// Does what is to do now.
    void dispatch();

    /// Number of extensions that are connected.
    [[nodiscard]] std::size_t connections() const;

    /// Merges into the settings that the extension reads when it starts: the port, the watched
    /// directory, and the companion's titles and backup entry if they are set. On Linux only.
    /// Returns false on failure, and `failure` says what is wrong.
    [[nodiscard]] bool writeSettings(const std::string& group, const std::string& rootFolder,
                                     std::string& failure) const;

    /// Has the extension of an application group end and start anew, so that it connects: runs
    /// `finderctl restart`, which comes with the extension on Linux; a product with a name of its
    /// own has a program of its own. Returns false if that cannot be started; otherwise
    /// `onRestarted` follows.
    [[nodiscard]] bool restartExtension(const std::string& group, std::string& failure,
                                        const std::string& program = "finderctl");

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace finder_sync

#pragma once

#include "process/Descriptor.h"
#include "process/SystemdHandles.h"
#include "tools/companion/Outbox.h"

#include <string>
#include <string_view>

namespace companion {

/// Is told what happens on a connection. Only `connectionLost`, which is the last call, may
/// destroy the connection.
class ConnectionObserver {
public:
    virtual ~ConnectionObserver() = default;

    /// Bytes have arrived. Returns false when they make no sense, which ends the connection.
    [[nodiscard]] virtual bool bytesArrived(std::string_view bytes) = 0;

    /// The system has accepted some of the waiting lines.
    virtual void linesTaken() = 0;

    /// The system has sent every waiting line to the peer.
    virtual void everythingSent() = 0;

    /// The connection has ended; `reason` says in words why.
    virtual void connectionLost(const std::string& reason) = 0;
};

/// The link to one extension. Never blocks.
class Connection {
public:
    /// The socket is non-blocking.
    Connection(process::Descriptor socket, Outbox& outbox, ConnectionObserver& observer);

    /// Makes the event loop serve the connection. Returns 0 or a negative errno.
    [[nodiscard]] int serve(sd_event* event);

    /// Sends the lines of the outbox as soon as the socket is writable.
    void sendWaitingLines();

    /// Whether the system still holds bytes that it has not sent; `everythingSent` follows.
    [[nodiscard]] bool isSending() const { return isSending_; }

    /// Tells the peer that nothing follows, and hands on what has arrived from it until now.
    void finish();

private:
    enum class ReadResult { NothingMore, Continue, End };

    static int handleEvents(sd_event_source*, int, std::uint32_t events, void* self) noexcept;
    void becameWritable();
    void setSending(bool isSending);
    void waitForRoom();
    void watch(std::uint32_t events);
    [[nodiscard]] ReadResult readOnce(std::string& reason);

    process::Descriptor socket_;
    Outbox& outbox_;
    ConnectionObserver& observer_;
    process::EventSource source_;
    process::EventSource timer_;
    bool isSending_ = false;
};

} // namespace companion

#pragma once

#include "tools/companion/Outbox.h"

#include <string>
#include <string_view>
#include <systemd/sd-event.h>

namespace companion {

/// Hears of what happens on a connection. None of the calls may destroy the connection, except
/// `connectionLost`, which is its last.
class ConnectionObserver {
public:
    virtual ~ConnectionObserver() = default;

    /// Bytes have come. False ends the connection: the peer is not worth listening to.
    [[nodiscard]] virtual bool bytesArrived(std::string_view bytes) = 0;

    /// Some waiting lines have been handed to the system.
    virtual void linesTaken() = 0;

    /// The system has sent every waiting line.
    virtual void everythingSent() = 0;

    /// The connection is over; `reason` says in words why.
    virtual void connectionLost(const std::string& reason) = 0;
};

/// The link to one extension. Never blocks.
class Connection {
public:
    /// Owns the socket, which is non-blocking.
    Connection(int socket, Outbox& outbox, ConnectionObserver& observer);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Has the event loop serve the connection. Gives 0 or a negative errno.
    [[nodiscard]] int serve(sd_event* event);

    /// Sends what waits in the outbox as soon as the socket takes it.
    void sendWaitingLines();

    /// Whether the system has not sent all yet that it was given. `everythingSent` tells when.
    [[nodiscard]] bool isSending() const { return isSending_; }

    /// Tells the peer that nothing more comes, and hands on what it has said until now.
    void finish();

private:
    enum class ReadResult { NothingMore, Continue, End };

    static int handleEvents(sd_event_source*, int, std::uint32_t events, void* self) noexcept;
    void becameWritable();
    void setSending(bool isSending);
    void setOnlyWholeSegments(bool isOn);
    [[nodiscard]] ReadResult readOnce(std::string& reason);

    int socket_;
    Outbox& outbox_;
    ConnectionObserver& observer_;
    sd_event_source* source_ = nullptr;
    bool isSending_ = false;
    bool hasOnlyWholeSegments_ = false;
};

} // namespace companion

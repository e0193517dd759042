#pragma once

#include "platform/Foundation.h"
#include "platform/linux/RunLoop.h"
#include "process/Descriptor.h"
#include "process/SystemdHandles.h"

#include <cstdint>
#include <memory>
#include <string>
#include <systemd/sd-event.h>
#include <utility>

namespace platform::linux_backend {

enum class Status { NotOpen, Opening, Open, AtEnd, Error };

/// The connection's view of one of its two streams.
struct Direction {
    Status status = Status::NotOpen;
    NSStream* stream = nullptr; ///< null once the stream is released
    NSStreamDelegate* delegate = nullptr;
    RunLoop* runLoop = nullptr; ///< null until the stream is scheduled

    [[nodiscard]] bool isLive() const {
        return status == Status::Opening || status == Status::Open;
    }
    [[nodiscard]] bool awaitsOpening() const {
        return status == Status::Opening && runLoop != nullptr;
    }
};

/// One TCP socket that two streams share. sd-event delivers its events. The streams own it; it
/// keeps plain pointers to them, which `release` clears.
class SocketConnection : public std::enable_shared_from_this<SocketConnection> {
public:
    SocketConnection(std::string host, std::uint32_t port) : host_(std::move(host)), port_(port) {}
    ~SocketConnection() = default;
    SocketConnection(const SocketConnection&) = delete;
    SocketConnection& operator=(const SocketConnection&) = delete;

    void open(Direction& direction);
    void schedule(Direction& direction, RunLoop& runLoop);
    void release(Direction& direction);

    [[nodiscard]] bool hasBytesAvailable() const;
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength);
    std::int64_t write(const std::uint8_t* bytes, std::size_t length);

    Direction input;
    Direction output;

private:
    enum class SocketState { None, Connecting, Established, Failed };

    void beginConnecting();
    void listen();
    [[nodiscard]] bool watchSocket(sd_event* event);
    void announceFailure(sd_event* event);
    void updateInterest();
    void handleEvents(std::uint32_t events);
    void finishConnecting();
    [[nodiscard]] bool peerIsOurUser() const;
    void deliverOpenCompleted();
    void deliverInput();
    [[nodiscard]] bool findsBytesOtherwise();
    void deliverErrors();
    [[nodiscard]] int bytesToRead() const;
    [[nodiscard]] std::uint32_t interest() const;

    std::string host_;
    std::uint32_t port_;
    process::Descriptor socket_;
    SocketState state_ = SocketState::None;
    mutable int bytesToldOf_ = 0;       ///< lower bound, from the last FIONREAD
    bool bytesAnnounced_ = false;       ///< set until the next read
    bool spaceToBeAnnounced_ = false;   ///< set by opening and by each write
    bool wasReset_ = false;             ///< by a write: recv reports an end then
    process::EventSource socketSource_; // closed before the socket that it watches
    process::EventSource failureSource_;
};

} // namespace platform::linux_backend

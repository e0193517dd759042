// Stream pairs over one TCP socket.
//
// Both streams own the connection, which drops its pointer to a stream that is released. A delegate
// may release a stream while it handles an event of that stream.

#include "platform/CoreFoundation.h"
#include "platform/linux/SocketConnection.h"

#include <string>
#include <utility>

namespace platform {

namespace {

/// The base of both streams: one direction of the shared connection.
template <typename Base, linux_backend::Direction linux_backend::SocketConnection::* member>
class SocketStream : public Base {
public:
    explicit SocketStream(std::shared_ptr<linux_backend::SocketConnection> connection)
        : connection_(std::move(connection)) {
        direction().stream = this;
    }
    ~SocketStream() override { connection_->release(direction()); }
    SocketStream(const SocketStream&) = delete;
    SocketStream& operator=(const SocketStream&) = delete;

    void setDelegate(NSStreamDelegate* delegate) override { direction().delegate = delegate; }

    void scheduleInRunLoop(NSRunLoop& runLoop, std::string_view mode) override {
        if (mode == NSDefaultRunLoopMode) // run loops here never run in another mode
            connection_->schedule(direction(), static_cast<linux_backend::RunLoop&>(runLoop));
    }

    void open() override { connection_->open(direction()); }

    [[nodiscard]] bool isEqual(const NSStream& other) const override { return this == &other; }

protected:
    [[nodiscard]] linux_backend::SocketConnection& connection() const { return *connection_; }

private:
    linux_backend::Direction& direction() { return (*connection_).*member; }

    std::shared_ptr<linux_backend::SocketConnection> connection_;
};

class SocketInputStream
    : public SocketStream<NSInputStream, &linux_backend::SocketConnection::input> {
public:
    using SocketStream::SocketStream;

    [[nodiscard]] bool hasBytesAvailable() const override {
        return connection().hasBytesAvailable();
    }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        return connection().read(buffer, maxLength);
    }
};

class SocketOutputStream
    : public SocketStream<NSOutputStream, &linux_backend::SocketConnection::output> {
public:
    using SocketStream::SocketStream;

    std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
        return connection().write(bytes, length);
    }
};

} // namespace

void CFStreamCreatePairWithSocketToHost(const std::string& host, std::uint32_t port,
                                        std::shared_ptr<NSInputStream>& readStream,
                                        std::shared_ptr<NSOutputStream>& writeStream) {
    const auto connection = std::make_shared<linux_backend::SocketConnection>(host, port);
    readStream = std::make_shared<SocketInputStream>(connection);
    writeStream = std::make_shared<SocketOutputStream>(connection);
}

} // namespace platform

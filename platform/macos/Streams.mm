// Stream pairs of Core Foundation, toll-free bridged to Foundation's streams.

#include "platform/macos/Streams.h"

#include "platform/CoreFoundation.h"
#include "platform/macos/RunLoop.h"
#include "platform/macos/Strings.h"

#import <CoreFoundation/CoreFoundation.h>
#include <utility>

/// Passes events to a delegate that is not an `ObjectDelegate`.
@interface FSStreamDelegate : NSObject <NSStreamDelegate> {
    platform::NSStreamDelegate* delegate_;
}
- (instancetype)initWithDelegate:(platform::NSStreamDelegate*)delegate;
@end

@implementation FSStreamDelegate

- (instancetype)initWithDelegate:(platform::NSStreamDelegate*)delegate {
    self = [super init];
    if (self != nil)
        delegate_ = delegate;
    return self;
}

- (void)stream:(NSStream*)stream handleEvent:(NSStreamEvent)event {
    platform::macos::deliver(*delegate_, stream, event);
}

@end

namespace platform {

namespace {

/// Gives `isEqual` access to another stream's object.
class StreamObject {
public:
    virtual ~StreamObject() = default;
    [[nodiscard]] virtual ::NSStream* streamObject() const = 0;
};

/// The operations that every stream has.
template <typename Contract, typename Object> class Stream : public Contract, public StreamObject {
public:
    explicit Stream(macos::Reference<Object*> stream) : stream_(std::move(stream)) {}
    ~Stream() override = default;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void setDelegate(NSStreamDelegate* delegate) override {
        const auto* const ownObject = dynamic_cast<const macos::ObjectDelegate*>(delegate);
        delegate_ = {};
        if (delegate != nullptr && ownObject == nullptr)
            delegate_ = macos::adopt([[FSStreamDelegate alloc] initWithDelegate:delegate]);
        [object() setDelegate:ownObject != nullptr ? ownObject->delegateObject() : delegate_.get()];
    }

    void scheduleInRunLoop(NSRunLoop& runLoop, std::string_view mode) override {
        const auto modeName = mode == NSDefaultRunLoopMode ? macos::retain(::NSDefaultRunLoopMode)
                                                           : macos::stringObject(mode);
        [object() scheduleInRunLoop:static_cast<macos::RunLoop&>(runLoop).object()
                            forMode:modeName.get()];
    }

    void open() override { [object() open]; }

    [[nodiscard]] bool isEqual(const NSStream& other) const override {
        return [object() isEqual:dynamic_cast<const StreamObject&>(other).streamObject()] != NO;
    }

    [[nodiscard]] ::NSStream* streamObject() const override { return object(); }

protected:
    [[nodiscard]] Object* object() const { return stream_.get(); }

private:
    macos::Reference<Object*> stream_;
    macos::Reference<FSStreamDelegate*> delegate_;
};

/// A stream made by this back end, as opposed to the wrapper that `deliver` makes.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): it is, but its base is a template's
template <typename Contract, typename Object> class OwnStream : public Stream<Contract, Object> {
public:
    using Stream<Contract, Object>::Stream;
    /// Foundation may retain the stream longer than the delegate lives.
    ~OwnStream() override { [this->object() setDelegate:nil]; }
    OwnStream(const OwnStream&) = delete;
    OwnStream& operator=(const OwnStream&) = delete;
};

class InputStream : public OwnStream<NSInputStream, ::NSInputStream> {
public:
    using OwnStream::OwnStream;

    [[nodiscard]] bool hasBytesAvailable() const override {
        return [object() hasBytesAvailable] != NO;
    }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        return [object() read:buffer maxLength:maxLength];
    }
};

class OutputStream : public OwnStream<NSOutputStream, ::NSOutputStream> {
public:
    using OwnStream::OwnStream;

    /// Foundation's method would block until there is room, or until the stream has opened.
    std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
        if ([object() hasSpaceAvailable] == NO)
            return -1;
        return [object() write:bytes maxLength:length];
    }
};

} // namespace

namespace macos {

void deliver(NSStreamDelegate& delegate, ::NSStream* stream, ::NSStreamEvent event) {
    Stream<NSStream, ::NSStream> wrapped(retain(stream));
    delegate.stream(wrapped, static_cast<NSStreamEvent>(event));
}

} // namespace macos

void CFStreamCreatePairWithSocketToHost(const std::string& host, std::uint32_t port,
                                        std::shared_ptr<NSInputStream>& readStream,
                                        std::shared_ptr<NSOutputStream>& writeStream) {
    // A port above 65535 truncated to 16 bits would reach another program; connecting to port 0
    // fails.
    const UInt32 existingPort = port <= 65535 ? port : 0;
    const auto name = macos::stringObject(host);
    CFReadStreamRef read = nullptr;
    CFWriteStreamRef write = nullptr;
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations" // its replacement has no streams
    ::CFStreamCreatePairWithSocketToHost(kCFAllocatorDefault,
                                         reinterpret_cast<CFStringRef>(name.get()), existingPort,
                                         &read, &write);
#pragma clang diagnostic pop
    if (read != nullptr)
        readStream =
            std::make_shared<InputStream>(macos::adopt(reinterpret_cast<::NSInputStream*>(read)));
    if (write != nullptr)
        writeStream = std::make_shared<OutputStream>(
            macos::adopt(reinterpret_cast<::NSOutputStream*>(write)));
}

} // namespace platform

// The extension's end of the loopback link to the companion application. The extension connects
// only when it starts: a lost link stays lost until the extension is restarted.

#include "extension/FinderSync.h"
#include "platform/CoreFoundation.h"
#include "platform/System.h"

#include <utility>

namespace findersync {

using platform::NSStreamEvent;

void FinderSync::connect() {
    platform::print("connecting...");

    std::shared_ptr<platform::NSInputStream> readStream;
    std::shared_ptr<platform::NSOutputStream> writeStream;
    platform::CFStreamCreatePairWithSocketToHost(serverAddress(), serverPort(), readStream,
                                                 writeStream);
    if (!readStream)
        platform::fatalError("no read stream to the companion application can be created");
    inputStream_ = std::move(readStream);
    if (!writeStream)
        platform::fatalError("no write stream to the companion application can be created");
    outputStream_ = std::move(writeStream);

    inputStream_->setDelegate(this);
    outputStream_->setDelegate(this);
    inputStream_->scheduleInRunLoop(platform::currentRunLoop(), platform::NSDefaultRunLoopMode);
    outputStream_->scheduleInRunLoop(platform::currentRunLoop(), platform::NSDefaultRunLoopMode);
    inputStream_->open();
    outputStream_->open();
}

void FinderSync::stream(platform::NSStream& stream, NSStreamEvent event) {
    switch (event) {
    case NSStreamEvent::OpenCompleted:
        platform::print("Opened connection");
        break;
    case NSStreamEvent::HasBytesAvailable:
        platform::print("receiving");
        if (!inputStream_)
            platform::fatalError("bytes are available, but there is no input stream");
        if (stream.isEqual(*inputStream_))
            readInboundMessages();
        break;
    case NSStreamEvent::HasSpaceAvailable:
        platform::print("Sending");
        break;
    case NSStreamEvent::ErrorOccurred:
        // `isSocketConnected` stays true: the menu is still offered after a refused connection.
        platform::print("Stream open error");
        break;
    case NSStreamEvent::EndEncountered:
        platform::print("ignore");
        setIsSocketConnected(false);
        break;
    default:
        platform::print("default");
        break;
    }
}

} // namespace findersync

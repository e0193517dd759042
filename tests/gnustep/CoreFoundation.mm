#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#include <objc/runtime.h>
#include <poll.h>

const CFAllocatorRef kCFAllocatorDefault = nullptr;

@interface NSStream (GNUstep)
/// The socket, cast to a pointer.
- (void*)_loopID;
@end

namespace {

/// GNUstep answers YES for as long as a stream is open. A loop that reads while there are bytes
/// would never end.
BOOL hasBytesAvailable(id stream, SEL selector) {
    using Answer = BOOL (*)(id, SEL);
    const IMP inherited = class_getMethodImplementation([[stream class] superclass], selector);
    const auto original = reinterpret_cast<Answer>(reinterpret_cast<void (*)()>(inherited));
    if (original(stream, selector) == NO)
        return NO;
    const auto socket = static_cast<int>(reinterpret_cast<std::intptr_t>([stream _loopID]));
    pollfd request{.fd = socket, .events = POLLIN, .revents = 0};
    return poll(&request, 1, 0) > 0 ? YES : NO;
}

/// Overrides `hasBytesAvailable` in a class of input streams.
void correct(Class inputStream) {
    const SEL selector = @selector(hasBytesAvailable);
    const auto implementation = reinterpret_cast<void (*)()>(&hasBytesAvailable);
    class_addMethod(inputStream, selector, reinterpret_cast<IMP>(implementation),
                    method_getTypeEncoding(class_getInstanceMethod(inputStream, selector)));
}

} // namespace

void CFStreamCreatePairWithSocketToHost(CFAllocatorRef, CFStringRef host, UInt32 port,
                                        CFReadStreamRef* readStream,
                                        CFWriteStreamRef* writeStream) {
    @autoreleasepool {
        NSInputStream* input = nil;
        NSOutputStream* output = nil;
        NSString* const address = reinterpret_cast<NSString*>(const_cast<__CFString*>(host));
        [NSStream getStreamsToHost:[NSHost hostWithAddress:address]
                              port:port
                       inputStream:&input
                      outputStream:&output];
        correct([input class]);
        *readStream = reinterpret_cast<CFReadStreamRef>([input retain]);
        *writeStream = reinterpret_cast<CFWriteStreamRef>([output retain]);
    }
}

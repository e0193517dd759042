#include "platform/macos/RunLoop.h"

namespace platform {

NSRunLoop& currentRunLoop() {
    thread_local macos::RunLoop runLoop([::NSRunLoop currentRunLoop]);
    return runLoop;
}

} // namespace platform

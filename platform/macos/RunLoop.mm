#include "platform/macos/RunLoop.h"

namespace platform {

NSRunLoop& currentRunLoop() {
    // NOLINTNEXTLINE(misc-use-internal-linkage): it is local
    thread_local macos::RunLoop runLoop([::NSRunLoop currentRunLoop]);
    return runLoop;
}

} // namespace platform

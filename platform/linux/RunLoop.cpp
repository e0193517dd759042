#include "platform/linux/RunLoop.h"

#include "platform/System.h"
#include "platform/linux/BufferedOutput.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace platform {

namespace linux_backend {

RunLoop::RunLoop() {
    if (const int result = sd_event_default(process::Out(event_)); result < 0)
        fatalError(std::string("no run loop: ") + std::strerror(-result));
}

// NOLINTNEXTLINE(readability-make-member-function-const): what it delivers changes the loop
bool RunLoop::runOnce() {
    flushStandardStreams();
    if (const int result = sd_event_run(event(), UINT64_MAX); result < 0)
        fatalError(std::string("the run loop failed: ") + std::strerror(-result));
    flushStandardStreams();
    int code = 0;
    return sd_event_get_exit_code(event(), &code) < 0;
}

RunLoop& runLoopOfThisThread() {
    static thread_local RunLoop runLoop;
    return runLoop;
}

} // namespace linux_backend

NSRunLoop& currentRunLoop() {
    return linux_backend::runLoopOfThisThread();
}

} // namespace platform

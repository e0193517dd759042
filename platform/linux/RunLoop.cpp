#include "platform/linux/RunLoop.h"

#include "platform/System.h"
#include "platform/linux/StandardStreams.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace platform {

namespace linux_backend {

RunLoop::RunLoop() {
    if (const int result = sd_event_default(&event_); result < 0)
        fatalError(std::string("no run loop: ") + std::strerror(-result));
}

RunLoop::~RunLoop() {
    sd_event_unref(event_);
}

bool RunLoop::runOnce() {
    flushStandardStreams();
    if (const int result = sd_event_run(event_, UINT64_MAX); result < 0)
        fatalError(std::string("the run loop failed: ") + std::strerror(-result));
    return sd_event_get_state(event_) != SD_EVENT_FINISHED;
}

int RunLoop::run() {
    while (runOnce()) {
    }
    flushStandardStreams();
    int code = 0;
    (void)sd_event_get_exit_code(event_, &code);
    return code;
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

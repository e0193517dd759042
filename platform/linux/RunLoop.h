#pragma once

#include "platform/Foundation.h"
#include "process/SystemdHandles.h"

#include <systemd/sd-event.h>

namespace platform::linux_backend {

/// The run loop of one thread: the default sd-event loop of that thread.
class RunLoop : public NSRunLoop {
public:
    RunLoop();

    /// For adding event sources. Owned by this object.
    [[nodiscard]] sd_event* event() const { return event_.get(); }

    /// Waits for one event and delivers it. Flushes buffered output before and after.
    /// Returns false once `sd_event_exit` has been called.
    bool runOnce();

private:
    process::EventLoop event_;
};

/// The object behind `platform::currentRunLoop()`.
[[nodiscard]] RunLoop& runLoopOfThisThread();

} // namespace platform::linux_backend

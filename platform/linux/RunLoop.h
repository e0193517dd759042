#pragma once

#include "platform/Foundation.h"

#include <systemd/sd-event.h>

namespace platform::linux_backend {

/// The run loop of one thread: sd-event's default loop of that thread. Everything it delivers runs
/// on the thread that runs it.
class RunLoop : public NSRunLoop {
public:
    RunLoop();
    ~RunLoop() override;
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// The loop that further event sources can be added to. Owned by this object.
    [[nodiscard]] sd_event* event() const { return event_; }

    /// Waits for one event and delivers it. Writes out what was printed, before it waits and after.
    /// Gives false once `sd_event_exit` has been called.
    bool runOnce();

private:
    sd_event* event_ = nullptr;
};

/// The object behind `platform::currentRunLoop()`.
[[nodiscard]] RunLoop& runLoopOfThisThread();

} // namespace platform::linux_backend

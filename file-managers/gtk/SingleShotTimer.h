#pragma once

#include <chrono>
#include <functional>
#include <glib.h>

namespace file_managers {

/// Calls a function once from the main loop. Destroying the timer cancels the call.
class SingleShotTimer {
public:
    explicit SingleShotTimer(std::function<void()> expired) : expired_(std::move(expired)) {}
    ~SingleShotTimer();
    SingleShotTimer(const SingleShotTimer&) = delete;
    SingleShotTimer& operator=(const SingleShotTimer&) = delete;

    [[nodiscard]] bool isActive() const { return source_ != 0; }

    /// After a while, or as soon as the main loop has nothing else to do; redrawing goes before
    /// either. The timer must not be active.
    void start(std::chrono::milliseconds delay);
    void startWhenIdle();

    void stop();

private:
    static gboolean expire(void* self);

    std::function<void()> expired_;
    guint source_ = 0; ///< in the main loop
};

} // namespace file_managers

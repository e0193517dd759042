#pragma once

#include "file-managers/Backoff.h"
#include "file-managers/gtk/SingleShotTimer.h"

#include <functional>
#include <utility>

namespace file_managers {

/// Calls a function as often as it is requested, but leaves `noticeInterval` after each call.
class PacedCall {
public:
    explicit PacedCall(std::function<void()> function) : function_(std::move(function)) {}

    /// Calls the function at once, or from the main loop when it is time and nothing more urgent
    /// is left to do, which includes redrawing.
    void request();

private:
    void call();

    std::function<void()> function_;
    Clock::time_point next_;
    SingleShotTimer timer_{[this] { call(); }};
};

} // namespace file_managers

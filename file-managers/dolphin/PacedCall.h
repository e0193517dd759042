#pragma once

#include "file-managers/Limits.h"

#include <QDeadlineTimer>
#include <QTimer>
#include <functional>

namespace file_managers {

/// Calls a function as often as it is requested, but leaves `noticeInterval` between two calls.
class PacedCall {
public:
    explicit PacedCall(const std::function<void()>& function) {
        timer_.setSingleShot(true);
        timer_.callOnTimeout([this, function] {
            pause_.setRemainingTime(noticeInterval);
            function();
        });
    }

    /// Has the function called from the event loop, as soon as it is idle and it is time.
    void request() {
        if (!timer_.isActive())
            timer_.start(static_cast<int>(pause_.remainingTime()));
    }

private:
    QTimer timer_;
    QDeadlineTimer pause_;
};

} // namespace file_managers

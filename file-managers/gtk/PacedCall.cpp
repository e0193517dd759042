#include "file-managers/gtk/PacedCall.h"

#include "file-managers/Limits.h"

namespace file_managers {

void PacedCall::request() {
    if (timer_.isActive())
        return;
    const Clock::time_point now = Clock::now();
    if (now < next_)
        timer_.start(std::chrono::ceil<std::chrono::milliseconds>(next_ - now));
    else
        call();
}

void PacedCall::call() {
    function_();
    next_ = Clock::now() + noticeInterval; // however long the function took
}

} // namespace file_managers

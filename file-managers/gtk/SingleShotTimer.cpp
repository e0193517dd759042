#include "file-managers/gtk/SingleShotTimer.h"

namespace file_managers {

SingleShotTimer::~SingleShotTimer() {
    if (source_ != 0)
        g_source_remove(source_);
}

void SingleShotTimer::start(guint milliseconds) {
    source_ = g_timeout_add(milliseconds, &expire, this);
}

void SingleShotTimer::startWhenIdle() {
    source_ = g_idle_add(&expire, this);
}

gboolean SingleShotTimer::expire(void* self) {
    auto& timer = *static_cast<SingleShotTimer*>(self);
    timer.source_ = 0; // the function may start the timer again
    timer.expired_();
    return G_SOURCE_REMOVE;
}

} // namespace file_managers

#include "file-managers/gtk/SingleShotTimer.h"

#include <utility>

namespace file_managers {

SingleShotTimer::~SingleShotTimer() {
    stop();
}

void SingleShotTimer::start(std::chrono::milliseconds delay) {
    source_ =
        g_timeout_add_full(G_PRIORITY_DEFAULT_IDLE, guint(delay.count()), &expire, this, nullptr);
}

void SingleShotTimer::startWhenIdle() {
    source_ = g_idle_add(&expire, this);
}

void SingleShotTimer::stop() {
    if (source_ != 0)
        g_source_remove(std::exchange(source_, 0));
}

gboolean SingleShotTimer::expire(void* self) {
    auto& timer = *static_cast<SingleShotTimer*>(self);
    timer.source_ = 0; // the function may start the timer again
    timer.expired_();
    return G_SOURCE_REMOVE;
}

} // namespace file_managers

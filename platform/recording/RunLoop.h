#pragma once

#include <functional>

namespace platform::recording {

/// Adds an event for `runOnce`, after those added before.
void post(std::function<void()> event);

/// Drops all undelivered events.
void dropEvents();

} // namespace platform::recording

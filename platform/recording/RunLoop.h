#pragma once

#include <functional>

namespace platform::recording {

/// Adds an event that `runOnce` calls, after every event that was added before.
void post(std::function<void()> event);

/// Drops every event that has not been delivered.
void dropEvents();

} // namespace platform::recording

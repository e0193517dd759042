#pragma once

#include <chrono>
#include <functional>
#include <glib.h>

namespace file_managers {

/// A main context that runs only while somebody waits, so that nothing else happens in the file
/// manager meanwhile.
class PrivateContext {
public:
    PrivateContext() = default;
    ~PrivateContext() { g_main_context_unref(context_); }
    PrivateContext(const PrivateContext&) = delete;
    PrivateContext& operator=(const PrivateContext&) = delete;

    /// Begins calls, whose replies are handled here, and handles them until all is done, or for so
    /// long.
    void run(std::chrono::milliseconds longest, const std::function<void()>& begin,
             const std::function<bool()>& isDone);

    /// Handles what has arrived since.
    void runPending();

private:
    GMainContext* context_ = g_main_context_new();
};

} // namespace file_managers

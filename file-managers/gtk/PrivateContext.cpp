#include "file-managers/gtk/PrivateContext.h"

namespace file_managers {

void PrivateContext::run(std::chrono::milliseconds longest, const std::function<void()>& begin,
                         const std::function<bool()>& isDone) {
    bool isOver = false;
    const auto end = [](void* over) -> gboolean {
        *static_cast<bool*>(over) = true;
        return G_SOURCE_REMOVE;
    };
    GSource* const timer = g_timeout_source_new(guint(longest.count()));
    g_source_set_callback(timer, end, &isOver, nullptr);
    (void)g_source_attach(timer, context_);
    g_main_context_push_thread_default(context_);
    begin();
    g_main_context_pop_thread_default(context_);
    while (!isOver && !isDone())
        (void)g_main_context_iteration(context_, TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
}

void PrivateContext::runPending() {
    while (g_main_context_iteration(context_, FALSE) != FALSE) {
    }
}

} // namespace file_managers

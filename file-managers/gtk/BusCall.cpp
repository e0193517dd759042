#include "file-managers/gtk/BusCall.h"

#include "file-managers/gtk/Handles.h"

#include <memory>
#include <utility>

namespace file_managers {

void callMethod(GDBusConnection* bus, const Method& method, GVariant* arguments,
                const char* replyType, GCancellable* cancellable, ReplyHandler handler,
                GDBusCallFlags flags) {
    const auto done = [](GObject* connection, GAsyncResult* result, void* data) {
        const std::unique_ptr<ReplyHandler> handle(static_cast<ReplyHandler*>(data));
        Error error;
        const Variant reply(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, Out(error)));
        if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED) == FALSE)
            (*handle)(reply.get(), error.get());
    };
    g_dbus_connection_call(bus, method.destination, method.path, method.interface, method.name,
                           arguments, G_VARIANT_TYPE(replyType), flags, G_MAXINT, cancellable, done,
                           new ReplyHandler(std::move(handler)));
}

} // namespace file_managers

#pragma once

#include <functional>
#include <gio/gio.h>

namespace file_managers {

struct Method {
    const char* destination;
    const char* path;
    const char* interface;
    const char* name;
};

/// A method of the bus itself.
constexpr Method methodOfBus(const char* name) {
    return {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", name};
}

/// Gets the reply, or null and the error. Both belong to the caller.
using ReplyHandler = std::function<void(GVariant* reply, const GError* error)>;

/// Calls a method, and starts no program for it unless the flags say so. Returns at once.
/// `arguments` is consumed if it is floating. A reply that is not of the type is the error
/// G_IO_ERROR_INVALID_ARGUMENT. The handler is called from the main context that is the thread's
/// default now, unless the call is cancelled. There is no timeout: a program that hangs may still
/// answer, and when it ends, the bus fails the call.
void callMethod(GDBusConnection* bus, const Method& method, GVariant* arguments,
                const char* replyType, GCancellable* cancellable, ReplyHandler handler,
                GDBusCallFlags flags = G_DBUS_CALL_FLAGS_NO_AUTO_START);

} // namespace file_managers

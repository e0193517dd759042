#pragma once

// Calls on the session bus.

#include <QDBusMessage>
#include <QString>
#include <QVariantList>
#include <limits>

namespace file_managers {

/// In milliseconds. For calls that take as long as they take: a program that hangs may still
/// answer, and when it ends, the bus fails the call.
inline constexpr int noTimeout = std::numeric_limits<int>::max();

inline const QLatin1String busService("org.freedesktop.DBus");
inline const QLatin1String busPath("/org/freedesktop/DBus");

/// A call of a method of the bus itself.
inline QDBusMessage callOfBus(const char* method, const QVariantList& arguments = {}) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(busService, busPath, busService, QLatin1String(method));
    call.setArguments(arguments);
    return call;
}

} // namespace file_managers

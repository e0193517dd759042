#pragma once

// What the interface file says in D-Bus types, and the generated proxy in these.

#include <QDBusArgument>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QPair>
#include <QString>

struct FinderSyncMenuItem {
    QString title;
    QString selector; ///< of the action
    QString image;    ///< name of an icon of the theme, without the group
};
Q_DECLARE_METATYPE(FinderSyncMenuItem)

using FinderSyncMenuItems = QList<FinderSyncMenuItem>;

/// By identifier: image file and label.
using FinderSyncBadges = QMap<QString, QPair<QString, QString>>;

inline QDBusArgument& operator<<(QDBusArgument& argument, const FinderSyncMenuItem& item) {
    argument.beginStructure();
    argument << item.title << item.selector << item.image;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, FinderSyncMenuItem& item) {
    argument.beginStructure();
    argument >> item.title >> item.selector >> item.image;
    argument.endStructure();
    return argument;
}

/// The extension never offers more entries. Any program can own its name and offer more; the file
/// manager has better things to do than to work on that.
constexpr int mostMenuItems = 16;

/// Reads one more than that at the most.
inline const QDBusArgument& operator>>(const QDBusArgument& argument, FinderSyncMenuItems& items) {
    items.clear();
    argument.beginArray();
    while (!argument.atEnd() && items.size() <= mostMenuItems) {
        FinderSyncMenuItem item;
        argument >> item;
        items.push_back(item);
    }
    argument.endArray();
    return argument;
}

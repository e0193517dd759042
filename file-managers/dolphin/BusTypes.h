#pragma once

// The types that the generated proxy has for those of the interface file.

#include "file-managers/Limits.h"

#include <QDBusArgument>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QPair>
#include <QString>

struct FinderSyncMenuItem {
    QString title;
    QString selector; ///< of the action
    QString image;    ///< the icon's name in the theme, without its prefix
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

/// Stops reading after one entry more than the limit.
inline const QDBusArgument& operator>>(const QDBusArgument& argument, FinderSyncMenuItems& items) {
    items.clear();
    argument.beginArray();
    while (!argument.atEnd() && items.size() <= file_managers::maxMenuItems) {
        FinderSyncMenuItem item;
        argument >> item;
        items.push_back(item);
    }
    argument.endArray();
    return argument;
}

#pragma once

// The extension's process, as a file manager's main thread sees it: nothing here makes that thread
// wait, but for a menu, which takes a tenth of a second at the most.

#include "file-managers/dolphin/BusTypes.h"

#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <QVariantMap>
#include <functional>
#include <memory>

class QDBusPendingCallWatcher;
class FindersyncExtension1Interface; // generated from the interface

namespace file_managers {

/// The URL of a local item as the extension takes it. Empty for one that it refuses, with all else
/// that is in the request: another scheme, or a path that is not UTF-8.
[[nodiscard]] QString requestURL(const QUrl& url);

class Extension : public QObject {
    Q_OBJECT

public:
    Extension();
    ~Extension() override;
    Extension(const Extension&) = delete;
    Extension& operator=(const Extension&) = delete;

    /// Whether it is on the bus and what it watches is known.
    [[nodiscard]] bool isRunning() const { return isRunning_; }

    /// Has the bus start the extension unless it runs; a second after the last start at the
    /// earliest. Returns at once.
    void start();

    /// Whether the extension wants to be asked about an item.
    [[nodiscard]] bool watches(const QUrl& url) const;

    /// Asks a running extension for the badges of items, by their request URLs: their identifiers,
    /// empty for none, in the order of the URLs. Returns at once. The answer comes from the event
    /// loop; it is empty when there is none, and does not come when the extension has ended.
    using BadgesAnswer = std::function<void(const QStringList&)>;
    void requestBadges(const QStringList& urls, const BadgesAnswer& answer);

    /// The entries that the extension offers for selected items.
    [[nodiscard]] FinderSyncMenuItems menuForItems(const QStringList& urls);

    /// Tells the extension what has been picked. Returns at once.
    void performAction(const QString& selector, const QStringList& urls);

Q_SIGNALS:
    void appeared();
    void gone();
    void rootFoldersChanged();

private:
    Q_SLOT void propertiesChanged(const QString& interface, const QVariantMap& changed,
                                  const QStringList& invalidated);
    void ownerChanged(const QString& owner);
    void followProperties(bool isFollowed);
    void fetchProperties();

    QDBusConnection bus_ = QDBusConnection::sessionBus();
    std::unique_ptr<FindersyncExtension1Interface> proxy_; ///< of the process that owns the name
    QPointer<QDBusPendingCallWatcher> firstOwner_;         ///< asked for at the start
    bool isRunning_ = false;
    QList<QUrl> watchedDirectories_;
    QDeadlineTimer noStartBefore_;
    QDeadlineTimer noMenuBefore_;
    QTimer startLater_;
};

} // namespace file_managers

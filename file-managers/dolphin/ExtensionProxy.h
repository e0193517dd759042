#pragma once

// The extension's process, seen from a file manager's main thread. No call blocks that thread,
// except that a menu waits for the extension's answer until `menuTimeout`.

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

/// An item's URL, spelt as the extension takes it. Empty if it is no local file or its path is not
/// UTF-8: a single such URL would make the extension refuse the whole request.
[[nodiscard]] QString requestURL(const QUrl& url);

/// Stands for the extension on the session bus. Belongs to the main thread.
class ExtensionProxy : public QObject {
    Q_OBJECT

public:
    ExtensionProxy();
    ~ExtensionProxy() override;
    ExtensionProxy(const ExtensionProxy&) = delete;
    ExtensionProxy& operator=(const ExtensionProxy&) = delete;

    /// Whether the extension is on the bus and its watched directories are known.
    [[nodiscard]] bool isRunning() const { return isRunning_; }

    /// Has the bus start the extension unless it runs, at most once per `startBackoff`. Returns at
    /// once.
    void start();

    /// Whether an item lies in a watched directory.
    [[nodiscard]] bool watches(const QUrl& url) const;

    /// Asks a running extension for the badges of items, by their request URLs. Returns at once.
    /// `answer` is called from the event loop with one identifier for each URL, in their order, ""
    /// for no badge; or with an empty list when the request failed. It is not called when the
    /// extension ends.
    using BadgesAnswer = std::function<void(const QStringList&)>;
    void requestBadges(const QStringList& urls, const BadgesAnswer& answer);

    /// The entries that the extension offers for selected items. Empty when it does not run, does
    /// not answer within `menuTimeout`, or did not answer within the last `menuBackoff`.
    [[nodiscard]] FinderSyncMenuItems menuForItems(const QStringList& urls);

    /// Tells the extension which entry was picked. Returns at once.
    void performAction(const QString& selector, const QStringList& urls);

Q_SIGNALS:
    void appeared();
    void gone();
    void rootFoldersChanged();

private:
    Q_SLOT void propertiesChanged(const QString& interface, const QVariantMap& changed,
                                  const QStringList& invalidated);
    void ownerChanged(const QString& owner);
    void subscribeToProperties(bool isSubscribed);
    void fetchProperties();

    QDBusConnection bus_ = QDBusConnection::sessionBus();
    std::unique_ptr<FindersyncExtension1Interface> proxy_; ///< of the process that owns the name
    QPointer<QDBusPendingCallWatcher> firstOwner_;         ///< a query that the constructor sends
    bool isRunning_ = false;
    QList<QUrl> watchedDirectories_;
    QDeadlineTimer startBackoff_;
    QDeadlineTimer menuBackoff_;
    QTimer startLater_;
};

} // namespace file_managers

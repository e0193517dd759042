#pragma once

// A product's extension, seen from a file manager's main thread. No call blocks that thread.

#include "file-managers/dolphin/BusTypes.h"

#include <QDBusConnection>
#include <QDBusPendingReply>
#include <QDeadlineTimer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>

class QDBusMessage;
class FindersyncExtension1Interface; // generated from the interface

namespace file_managers {

/// An item's URL, spelt as extensions take it. Empty if it is no local file or its path is not
/// UTF-8: a single such URL would make an extension refuse the whole request.
[[nodiscard]] QString requestURL(const QUrl& url);

/// Stands for the extension that has a bus name, whether it runs or not. Belongs to the main
/// thread.
class ExtensionProxy : public QObject {
    Q_OBJECT

public:
    explicit ExtensionProxy(QString busName);
    ~ExtensionProxy() override;
    ExtensionProxy(const ExtensionProxy&) = delete;
    ExtensionProxy& operator=(const ExtensionProxy&) = delete;

    /// The bus name without "FinderSync": begins the names of the product's icons.
    [[nodiscard]] QString iconPrefix() const;

    /// Tells which process has the bus name now: its unique name, or "" for none.
    void setOwner(const QString& owner);
    [[nodiscard]] bool hasOwner() const { return proxy_ != nullptr; }

    /// Has the bus start the extension unless it runs, at most once per `startBackoff`. Returns at
    /// once.
    void start();

    /// Whether an item lies in a directory that the extension watches. Its request URL must not be
    /// empty.
    [[nodiscard]] bool watches(const QUrl& url) const;

    /// Asks an extension that has appeared for the badges of items, by their request URLs. Returns
    /// at once. `answer` is called from the event loop with one identifier for each URL, in their
    /// order, "" for no badge; or with an empty list when the request failed. It is not called when
    /// the extension ends.
    using BadgesAnswer = std::function<void(const QStringList&)>;
    void requestBadges(const QStringList& urls, const BadgesAnswer& answer);

    /// Whether to ask the extension for a menu, if there is one: after one that it did not answer
    /// in time, not until it has, nor for `menuBackoff`.
    [[nodiscard]] bool answersMenus() const;

    /// Asks for the entries for selected items, by their request URLs. Returns at once.
    using MenuReply = QDBusPendingReply<bool, FinderSyncMenuItems>;
    [[nodiscard]] MenuReply requestMenu(const QStringList& urls);

    /// The entries in the reply to requestMenu(), when no more time is left for it.
    [[nodiscard]] FinderSyncMenuItems menuItems(const MenuReply& reply);

    /// Tells the extension which entry was picked. Returns at once.
    void performAction(const QString& selector, const QStringList& urls);

Q_SIGNALS:
    /// The extension has appeared, or its root folders have changed: its badges are to be requested
    /// from now on, or anew.
    void badgesOutdated();
    /// An extension that had appeared has gone.
    void gone();

private:
    Q_SLOT void propertiesChanged(const QString& interface, const QVariantMap& changed,
                                  const QStringList& invalidated, const QDBusMessage& signal);
    void fetchProperties();
    [[nodiscard]] bool hasAppeared() const { return hasInterface_.value_or(false); }

    const QString busName_;
    QDBusConnection bus_ = QDBusConnection::sessionBus();
    std::unique_ptr<FindersyncExtension1Interface> proxy_; ///< of the process that owns the name
    std::optional<bool> hasInterface_;                     ///< whether that process does, if known
    bool isNonsense_ = false;                              ///< what it answers: it is asked no more
    QStringList watchedPaths_;                             ///< without a "/" at the end
    QDeadlineTimer startBackoff_;
    QDeadlineTimer menuBackoff_;
    MenuReply lastMenu_;
    QTimer startLater_;
};

} // namespace file_managers

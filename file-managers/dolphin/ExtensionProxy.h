#pragma once

// A running extension, seen from a file manager's main thread. No call blocks that thread.

#include "file-managers/Backoff.h"
#include "file-managers/RootFolders.h"
#include "file-managers/dolphin/BusTypes.h"

#include "FinderSyncExtension1.h" // generated from the interface

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QDeadlineTimer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace file_managers {

/// An item's URL, spelt as extensions take it. Empty if it is no local file or its path is not
/// UTF-8: a single such URL would make an extension refuse the whole request.
[[nodiscard]] QString requestURL(const QUrl& url);

/// The name of an item, to be compared with those of root folders.
[[nodiscard]] NameHash nameOf(const QUrl& url);

/// Stands for the process that owns a product's name on the session bus. Belongs to the main
/// thread. Destroying it cancels its requests: their answers do not come any more.
class ExtensionProxy : public QObject {
    Q_OBJECT

public:
    /// `owner` is the unique name of the process.
    ExtensionProxy(const QString& busName, const QString& owner);

    [[nodiscard]] QString owner() const { return proxy_.service(); }

    /// How the names of the product's icons begin: "com.example.companion." for
    /// com.example.companion.FinderSync.
    [[nodiscard]] const QString& iconPrefix() const { return iconPrefix_; }

    /// Whether appeared() was emitted. Only then may badges be requested.
    [[nodiscard]] bool hasAppeared() const { return hasInterface_.value_or(false); }

    /// Whether an item lies in a directory that the extension watches. Its request URL must not be
    /// empty.
    [[nodiscard]] bool watches(const QUrl& url) const;

    /// Asks for the names of the root folders: any name when they cannot be had.
    void requestNamesOfRootFolders(const std::function<void(FolderNames)>& answer);

    /// Asks for the badges of items, by their request URLs. `answer` is called from the event loop
    /// with one identifier for each URL, in their order, "" for no badge; or with an empty list
    /// when the request failed.
    using BadgesAnswer = std::function<void(const QStringList&)>;
    void requestBadges(const QStringList& urls, const BadgesAnswer& answer);

    /// Has rootFoldersChanged() emitted when root folders were added or removed. Call it before
    /// badges are requested, so that no change of theirs is missed.
    void observeRootFolders();

    /// Whether to ask the extension for a menu: after one that it did not answer in time, not until
    /// it has, nor for `menuBackoff`; after nonsense, not for a while.
    [[nodiscard]] bool takesMenuRequests() const;

    /// Asks for the entries for selected items, by their request URLs. Returns at once.
    using MenuReply = QDBusPendingReply<bool, FinderSyncMenuItems>;
    [[nodiscard]] MenuReply requestMenu(const QStringList& urls);

    /// The entries in the reply to requestMenu(), when no more time is left for it.
    [[nodiscard]] FinderSyncMenuItems menuItems(const MenuReply& reply);

Q_SIGNALS:
    void appeared();
    void rootFoldersChanged(const file_managers::FolderNames& names);

private:
    Q_SLOT void rootFoldersChangedBy(const QDBusMessage& signal);
    void requestDirectories();
    void requestTexts(const QString& property,
                      const std::function<void(const std::optional<QStringList>&)>& got);

    const QString iconPrefix_;
    QDBusConnection bus_ = QDBusConnection::sessionBus();
    FindersyncExtension1Interface proxy_;
    std::optional<bool> hasInterface_;            ///< if that is known
    std::vector<std::string> watchedDirectories_; ///< paths without a "/" at the end
    Backoff backoff_;
    QTimer retryTimer_;
    QDeadlineTimer menuBackoff_;
    Backoff nonsenseBackoff_; ///< of menus
    MenuReply lastMenu_;
};

} // namespace file_managers

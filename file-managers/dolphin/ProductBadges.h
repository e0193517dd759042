#pragma once

#include "file-managers/Backoff.h"
#include "file-managers/Limits.h"
#include "file-managers/RootFolders.h"
#include "file-managers/dolphin/ExtensionProxy.h"
#include "file-managers/dolphin/PacedCall.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <functional>
#include <list>
#include <vector>

namespace file_managers {

struct ShownItem {
    QUrl url;
    NameHash name;
};

/// One product's badges of the items that are shown. Requests them in batches, one at a time, so
/// that a product that hangs keeps no other waiting. Belongs to the main thread.
class ProductBadges : public QObject {
public:
    using Items = std::list<ShownItem>;
    using Changed = std::function<void(const QUrl& item)>;

    /// Requests the badges of these items. `changed` is called from the event loop when an item has
    /// another badge. The extension has appeared.
    ProductBadges(ExtensionProxy& extension, const Items& items, Changed changed);

    /// Requests an item's badge, if it can have one or has one.
    void request(const ShownItem& item);

    /// The icon of an item's last known badge; "" for none.
    [[nodiscard]] QString icon(const QUrl& item) const;

    /// The item is tracked no longer.
    void forget(const QUrl& item);

    [[nodiscard]] QList<QUrl> badgedItems() const { return badges_.keys(); }

private:
    struct Batch {
        QList<QUrl> items;
        QStringList urls;
    };

    void requestRootFolders();
    void requestChanged();
    void enqueue(const QUrl& item);
    void send();
    template <typename Urls> [[nodiscard]] Batch takeFrom(Urls& items, int most) const;
    void setBadges(const QStringList& badges);
    void setBadge(const QUrl& item, const QString& badge);
    void retryLater();

    ExtensionProxy& extension_;
    const Items& items_;
    const Changed changed_;
    FolderNames names_; ///< of the root folders, and of some that were; none until they are known
    FolderNames changedNames_; ///< since the last call of requestChanged()
    PacedCall requestChanged_{[this] { requestChanged(); }};
    QHash<QUrl, QString> badges_; ///< identifiers, of the items that have one
    QSet<QUrl> queue_;            ///< to be requested
    QList<QUrl> pending_;         ///< requested; empty URLs for those that were forgotten since
    QList<QUrl> refused_;         ///< requested in vain, to be requested again
    int refusedBatchSize_ = batchSize;
    Backoff backoff_;
    QTimer retryTimer_;
    QTimer sendTimer_;
};

} // namespace file_managers

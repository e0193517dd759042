#pragma once

// The items that a file manager shows, and their badges.

#include "file-managers/dolphin/PacedCall.h"
#include "file-managers/dolphin/ProductBadges.h"
#include "file-managers/dolphin/Products.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QUrl>
#include <list>
#include <map>

namespace file_managers {

/// Tracks the items that the file manager shows, with the badges that all products give them, and
/// signals when they have changed.
///
/// The file manager does not tell when it no longer shows an item. Beyond `maxItems`, the item
/// without a badge that was shown longest ago is dropped.
class ShownItems : public QObject {
    Q_OBJECT

public:
    explicit ShownItems(Products& products);

    /// The file manager shows an item. Returns the icons of its badges, as far as they are known,
    /// in the order of the products' names. File managers are to call this in the main thread; any
    /// other thread gets no icons, but a signal in the main thread.
    QStringList show(const QUrl& url);

Q_SIGNALS:
    /// Is emitted from the event loop, for all items that have changed meanwhile, at once or after
    /// `noticeInterval`.
    void badgesChanged(const QUrl& url, const QStringList& icons);

    void shownInOtherThread(const QUrl& url);

private:
    [[nodiscard]] QStringList icons(const QUrl& url) const;
    void add(const QUrl& url);
    void dropOldest();
    void addBadges(ExtensionProxy* extension);
    void removeBadges(ExtensionProxy* extension);
    void setChanged(const QUrl& url);
    void signalChanges();

    Products& products_;
    std::list<ShownItem> items_; ///< those shown last are at the end
    QHash<QUrl, std::list<ShownItem>::iterator> places_;
    std::map<QString, ProductBadges> badges_; ///< by the prefix of the product's icons
    QSet<QUrl> changed_;                      ///< badgesChanged is to be emitted for these
    PacedCall notice_{[this] { signalChanges(); }};
    bool isSignalling_ = false; ///< badgesChanged is being emitted
};

} // namespace file_managers

#pragma once

// The items that a file manager shows, and their badges.

#include "file-managers/dolphin/Products.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <list>
#include <map>

namespace file_managers {

/// Tracks the items that the file manager shows, requests their badges in batches, and signals when
/// a badge has changed.
///
/// The file manager does not tell when it no longer shows an item. Beyond `maxItems`, the item
/// without a badge that was shown longest ago is dropped.
class ShownItems : public QObject {
    Q_OBJECT

public:
    explicit ShownItems(Products& products);

    /// The file manager shows an item. Returns the icons of its badges, as far as they are known,
    /// in the order of the products' names.
    QStringList show(const QUrl& url);

Q_SIGNALS:
    void badgesChanged(const QUrl& url, const QStringList& icons);

private:
    /// One product's badges. A product that does not answer delays no other.
    struct Badges {
        ExtensionProxy& extension;
        QHash<QUrl, QString> shown = {}; ///< identifiers
        QSet<QUrl> queued = {};          ///< items to request the badges of
        bool isPending = false;          ///< a request is; the next is sent once it is answered
    };

    [[nodiscard]] QStringList icons(const QUrl& url) const;
    void add(const QUrl& url);
    void dropOldest();
    void requestAll(ExtensionProxy* extension);
    void removeBadges(ExtensionProxy* extension);
    void send();
    void send(Badges& badges);
    void setBadges(Badges& badges, const QList<QUrl>& batch, const QStringList& identifiers);
    void signalChange(const QUrl& url);

    Products& products_;
    std::list<QUrl> items_; ///< those shown last are at the end
    QHash<QUrl, std::list<QUrl>::iterator> places_;
    std::map<QString, Badges> badges_; ///< by the prefix of the product's icons
    QTimer sendTimer_;
    bool isSignalling_ = false; ///< badgesChanged is being emitted
};

} // namespace file_managers

#pragma once

// The items that a file manager shows, and their badges.

#include "file-managers/dolphin/ExtensionProxy.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <list>

namespace file_managers {

/// Tracks the items that the file manager shows, requests their badges in batches, and signals when
/// a badge has changed.
///
/// The file manager does not tell when it no longer shows an item. Beyond `maxItems`, the item
/// without a badge that was shown longest ago is dropped.
class ShownItems : public QObject {
    Q_OBJECT

public:
    explicit ShownItems(ExtensionProxy& extension);

    /// The file manager shows an item. Returns its last known badge, which may be empty.
    QString show(const QUrl& url);

Q_SIGNALS:
    void badgeChanged(const QUrl& url, const QString& badge);

private:
    struct Item {
        QUrl url;
        QString badge;
        bool isQueued = false;
    };
    using Place = std::list<Item>::iterator;

    void add(const QUrl& url);
    void requestAll();
    void removeBadges();
    void request(Item& item);
    void sendLater();
    void send();
    [[nodiscard]] QList<QUrl> nextBatch();
    void setBadges(const QList<QUrl>& batch, const QStringList& badges);
    void setBadge(const QUrl& url, const QString& badge);

    ExtensionProxy& extension_;
    std::list<Item> items_; ///< those shown last are at the end
    QHash<QUrl, Place> places_;
    QTimer sendTimer_;
    bool isPending_ = false;    ///< a request is; the next is sent once it is answered
    bool isSignalling_ = false; ///< badgeChanged is being emitted
};

} // namespace file_managers

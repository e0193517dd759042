#pragma once

// The items that a file manager shows, and their badges.

#include "file-managers/dolphin/Extension.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <list>

namespace file_managers {

/// Remembers what the file manager shows, asks the extension about it in batches, and tells when
/// a badge has changed.
///
/// The file manager does not tell what it shows no longer. What was shown longest ago and carries
/// no badge is forgotten when there are more items than a window of it ever looks at.
class ShownItems : public QObject {
    Q_OBJECT

public:
    explicit ShownItems(Extension& extension);

    /// The file manager shows an item: its badge, empty while none is known.
    QString show(const QUrl& url);

Q_SIGNALS:
    void badgeChanged(const QUrl& url, const QString& badge);

private:
    struct Item {
        QUrl url;
        QString badge;
        bool isToBeAsked = false;
    };
    using Place = std::list<Item>::iterator;

    void add(const QUrl& url);
    void askAgain();
    void forgetBadges();
    void ask(Item& item);
    void sendLater();
    void send();
    [[nodiscard]] QList<QUrl> nextRequest();
    void take(const QList<QUrl>& asked, const QStringList& badges);
    void setBadge(const QUrl& url, const QString& badge);

    Extension& extension_;
    std::list<Item> items_; ///< in the order in which they were shown last
    QHash<QUrl, Place> places_;
    QTimer sendLater_;
    bool isAsking_ = false; ///< one request at a time: what comes up meanwhile goes into the next
    bool isTelling_ = false;
};

} // namespace file_managers

#include "file-managers/dolphin/ShownItems.h"

#include <algorithm>
#include <utility>

namespace file_managers {

namespace {

/// As many as are sent at a time: a folder of any size keeps neither side busy for long.
constexpr int batchSize = 1000;

/// As many as are remembered: far more than anyone scrolls through.
constexpr int mostItems = 20000;

} // namespace

ShownItems::ShownItems(Extension& extension) : extension_(extension) {
    sendLater_.setSingleShot(true);
    connect(&sendLater_, &QTimer::timeout, this, &ShownItems::send);
    connect(&extension, &Extension::appeared, this, &ShownItems::askAgain);
    connect(&extension, &Extension::rootFoldersChanged, this, &ShownItems::askAgain);
    connect(&extension, &Extension::gone, this, &ShownItems::forgetBadges);
}

QString ShownItems::show(const QUrl& url) {
    const auto place = places_.constFind(url);
    // Whoever is told of a badge asks for it, which is not the user's looking at it.
    if (isTelling_)
        return place == places_.constEnd() ? QString() : (*place)->badge;
    if (!url.isLocalFile())
        return {};
    extension_.start();
    if (place == places_.constEnd()) {
        add(url);
        return {};
    }
    items_.splice(items_.end(), items_, *place);
    return (*place)->badge;
}

void ShownItems::add(const QUrl& url) {
    items_.push_back({.url = url, .badge = {}});
    places_.insert(url, std::prev(items_.end()));
    ask(items_.back());
    if (places_.size() <= mostItems)
        return;
    // Badges stay in mind, since they have to be taken away some day. They are few.
    const auto hasNone = [](const Item& item) { return item.badge.isEmpty(); };
    const auto oldest = std::find_if(items_.begin(), items_.end(), hasNone);
    places_.remove(oldest->url);
    items_.erase(oldest);
}

void ShownItems::askAgain() {
    for (Item& item : items_)
        ask(item);
}

void ShownItems::forgetBadges() {
    isAsking_ = false; // nobody answers any more
    QList<QUrl> badged;
    for (Item& item : items_) {
        item.isToBeAsked = false;
        if (!item.badge.isEmpty())
            badged.push_back(item.url);
    }
    for (const QUrl& url : std::as_const(badged))
        setBadge(url, {});
}

void ShownItems::ask(Item& item) {
    if (!extension_.isRunning())
        return;
    item.isToBeAsked = true;
    sendLater();
}

/// Sends what has come up by the time that the file manager has nothing else to do.
void ShownItems::sendLater() {
    if (!isAsking_ && !sendLater_.isActive())
        sendLater_.start(0);
}

QList<QUrl> ShownItems::nextRequest() {
    QList<QUrl> urls;
    for (Item& item : items_) {
        if (urls.size() == batchSize)
            break;
        if (std::exchange(item.isToBeAsked, false) && extension_.watches(item.url) &&
            !requestURL(item.url).isEmpty())
            urls.push_back(item.url);
    }
    return urls;
}

void ShownItems::send() {
    const QList<QUrl> urls = nextRequest();
    if (urls.isEmpty() || !extension_.isRunning())
        return;
    isAsking_ = true;
    QStringList requested;
    std::transform(urls.begin(), urls.end(), std::back_inserter(requested), &requestURL);
    extension_.requestBadges(requested, [this, urls](const QStringList& badges) {
        isAsking_ = false;
        take(urls, badges);
        sendLater();
    });
}

void ShownItems::take(const QList<QUrl>& asked, const QStringList& badges) {
    if (badges.size() != asked.size())
        return; // it was refused
    for (int index = 0; index < badges.size(); ++index)
        setBadge(asked[index], badges[index]);
}

void ShownItems::setBadge(const QUrl& url, const QString& badge) {
    const auto place = places_.constFind(url);
    if (place == places_.constEnd() || (*place)->badge == badge)
        return;
    (*place)->badge = badge;
    isTelling_ = true;
    Q_EMIT badgeChanged(url, badge);
    isTelling_ = false;
}

} // namespace file_managers

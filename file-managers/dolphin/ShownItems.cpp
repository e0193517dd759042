#include "file-managers/dolphin/ShownItems.h"

#include "file-managers/Limits.h"

#include <algorithm>
#include <utility>

namespace file_managers {

namespace {

/// Far more than anyone scrolls through.
constexpr int maxItems = 20000;

} // namespace

ShownItems::ShownItems(ExtensionProxy& extension) : extension_(extension) {
    sendTimer_.setSingleShot(true);
    connect(&sendTimer_, &QTimer::timeout, this, &ShownItems::send);
    connect(&extension, &ExtensionProxy::appeared, this, &ShownItems::requestAll);
    connect(&extension, &ExtensionProxy::rootFoldersChanged, this, &ShownItems::requestAll);
    connect(&extension, &ExtensionProxy::gone, this, &ShownItems::removeBadges);
}

QString ShownItems::show(const QUrl& url) {
    const auto place = places_.constFind(url);
    // On the signal, the file manager calls this to read the badge, which does not count as
    // showing.
    if (isSignalling_)
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
    request(items_.back());
    if (places_.size() <= maxItems)
        return;
    // Items with a badge are kept, since the badge has to be removed one day. They are few.
    const auto hasNone = [](const Item& item) { return item.badge.isEmpty(); };
    const auto oldest = std::find_if(items_.begin(), items_.end(), hasNone);
    places_.remove(oldest->url);
    items_.erase(oldest);
}

void ShownItems::requestAll() {
    for (Item& item : items_)
        request(item);
}

void ShownItems::removeBadges() {
    isPending_ = false; // the answer will not come
    QList<QUrl> badged;
    for (Item& item : items_) {
        item.isQueued = false;
        if (!item.badge.isEmpty())
            badged.push_back(item.url);
    }
    for (const QUrl& url : std::as_const(badged))
        setBadge(url, {});
}

void ShownItems::request(Item& item) {
    if (!extension_.isRunning())
        return;
    item.isQueued = true;
    sendLater();
}

/// Collects requests until the file manager is idle.
void ShownItems::sendLater() {
    if (!isPending_ && !sendTimer_.isActive())
        sendTimer_.start(0);
}

QList<QUrl> ShownItems::nextBatch() {
    QList<QUrl> urls;
    for (Item& item : items_) {
        if (urls.size() == batchSize)
            break;
        if (std::exchange(item.isQueued, false) && extension_.watches(item.url) &&
            !requestURL(item.url).isEmpty())
            urls.push_back(item.url);
    }
    return urls;
}

void ShownItems::send() {
    const QList<QUrl> urls = nextBatch();
    if (urls.isEmpty() || !extension_.isRunning())
        return;
    isPending_ = true;
    QStringList requested;
    std::transform(urls.begin(), urls.end(), std::back_inserter(requested), &requestURL);
    extension_.requestBadges(requested, [this, urls](const QStringList& badges) {
        isPending_ = false;
        setBadges(urls, badges);
        sendLater();
    });
}

void ShownItems::setBadges(const QList<QUrl>& batch, const QStringList& badges) {
    if (badges.size() != batch.size())
        return; // the request failed
    for (int index = 0; index < badges.size(); ++index)
        setBadge(batch[index], badges[index]);
}

void ShownItems::setBadge(const QUrl& url, const QString& badge) {
    const auto place = places_.constFind(url);
    if (place == places_.constEnd() || (*place)->badge == badge)
        return;
    (*place)->badge = badge;
    isSignalling_ = true;
    Q_EMIT badgeChanged(url, badge);
    isSignalling_ = false;
}

} // namespace file_managers

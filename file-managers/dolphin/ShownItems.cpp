#include "file-managers/dolphin/ShownItems.h"

#include "file-managers/Limits.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace file_managers {

namespace {

/// Far more than anyone scrolls through.
constexpr int maxItems = 20000;

} // namespace

ShownItems::ShownItems(Products& products) : products_(products) {
    sendTimer_.setSingleShot(true);
    connect(&sendTimer_, &QTimer::timeout, this, qOverload<>(&ShownItems::send));
    connect(&products, &Products::badgesOutdated, this, &ShownItems::requestAll);
    connect(&products, &Products::gone, this, &ShownItems::removeBadges);
}

QStringList ShownItems::show(const QUrl& url) {
    // On the signal, the file manager calls this to read the badges, which does not count as
    // showing.
    if (isSignalling_)
        return icons(url);
    if (!url.isLocalFile())
        return {};
    products_.start();
    const auto place = places_.constFind(url);
    if (place == places_.constEnd())
        add(url);
    else
        items_.splice(items_.end(), items_, *place);
    return icons(url);
}

QStringList ShownItems::icons(const QUrl& url) const {
    QStringList icons;
    for (const auto& [prefix, badges] : badges_) {
        const QString badge = badges.shown.value(url);
        if (!badge.isEmpty())
            icons.push_back(QLatin1String("emblem-") + prefix + badge);
    }
    return icons;
}

void ShownItems::add(const QUrl& url) {
    items_.push_back(url);
    places_.insert(url, std::prev(items_.end()));
    for (auto& [prefix, badges] : badges_) {
        badges.queued.insert(url);
        sendTimer_.start(0); // collects requests until the file manager is idle
    }
    if (places_.size() > maxItems)
        dropOldest();
}

/// Items with a badge are kept, since the badge has to be removed one day. They are few.
void ShownItems::dropOldest() {
    const auto hasNone = [this](const QUrl& url) { return icons(url).isEmpty(); };
    const auto oldest = std::find_if(items_.begin(), items_.end(), hasNone);
    places_.remove(*oldest);
    for (auto& [prefix, badges] : badges_)
        badges.queued.remove(*oldest);
    items_.erase(oldest);
}

void ShownItems::requestAll(ExtensionProxy* extension) {
    Badges& badges = badges_.try_emplace(extension->iconPrefix(), Badges{*extension}).first->second;
    for (const QUrl& url : items_)
        badges.queued.insert(url);
    sendTimer_.start(0);
}

void ShownItems::removeBadges(ExtensionProxy* extension) {
    // The answer to a pending request will not come.
    const auto removed = badges_.extract(extension->iconPrefix());
    for (const QUrl& url : removed.mapped().shown.keys())
        signalChange(url);
}

void ShownItems::send() {
    for (auto& [prefix, badges] : badges_) {
        if (!badges.isPending)
            send(badges);
    }
}

void ShownItems::send(Badges& badges) {
    QList<QUrl> batch;
    QStringList requested;
    auto next = badges.queued.begin();
    for (; next != badges.queued.end() && batch.size() < batchSize;
         next = badges.queued.erase(next)) {
        const QString url = requestURL(*next);
        if (url.isEmpty() || !badges.extension.watches(*next))
            continue;
        batch.push_back(*next);
        requested.push_back(url);
    }
    if (batch.isEmpty())
        return;
    badges.isPending = true;
    badges.extension.requestBadges(requested, [this, &badges, batch](const QStringList& answer) {
        badges.isPending = false;
        setBadges(badges, batch, answer);
        send(badges);
    });
}

void ShownItems::setBadges(Badges& badges, const QList<QUrl>& batch,
                           const QStringList& identifiers) {
    for (int index = 0; index < identifiers.size(); ++index) { // none, if the request failed
        const QUrl& url = batch[index];
        const QString& identifier = identifiers[index];
        if (!places_.contains(url) || badges.shown.value(url) == identifier)
            continue;
        if (identifier.isEmpty())
            badges.shown.remove(url);
        else
            badges.shown.insert(url, identifier);
        signalChange(url);
    }
}

void ShownItems::signalChange(const QUrl& url) {
    isSignalling_ = true;
    Q_EMIT badgesChanged(url, icons(url));
    isSignalling_ = false;
}

} // namespace file_managers

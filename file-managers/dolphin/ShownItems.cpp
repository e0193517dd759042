#include "file-managers/dolphin/ShownItems.h"

#include <QThread>
#include <algorithm>
#include <iterator>
#include <utility>

namespace file_managers {

namespace {

/// Far more than anyone scrolls through.
constexpr int maxItems = 20000;

} // namespace

ShownItems::ShownItems(Products& products) : products_(products) {
    connect(&products, &Products::appeared, this, &ShownItems::addBadges);
    connect(&products, &Products::gone, this, &ShownItems::removeBadges);
    connect(this, &ShownItems::shownInOtherThread, this,
            [this](const QUrl& url) { Q_EMIT badgesChanged(url, show(url)); });
}

QStringList ShownItems::show(const QUrl& url) {
    if (QThread::currentThread() != thread()) {
        Q_EMIT shownInOtherThread(url);
        return {};
    }
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
        const QString icon = badges.icon(url);
        if (!icon.isEmpty())
            icons.push_back(icon);
    }
    return icons;
}

void ShownItems::add(const QUrl& url) {
    items_.push_back({url, nameOf(url)});
    places_.insert(url, std::prev(items_.end()));
    for (auto& [prefix, badges] : badges_)
        badges.request(items_.back());
    if (places_.size() > maxItems)
        dropOldest();
}

/// Items with a badge are kept, since the badge has to be removed one day. They are few.
void ShownItems::dropOldest() {
    const auto hasNone = [this](const ShownItem& item) { return icons(item.url).isEmpty(); };
    const auto oldest = std::ranges::find_if(items_, hasNone);
    places_.remove(oldest->url);
    changed_.remove(oldest->url);
    for (auto& [prefix, badges] : badges_)
        badges.forget(oldest->url);
    items_.erase(oldest);
}

void ShownItems::addBadges(ExtensionProxy* extension) {
    const auto changed = [this](const QUrl& url) { setChanged(url); };
    badges_.try_emplace(extension->iconPrefix(), *extension, items_, changed);
}

void ShownItems::removeBadges(ExtensionProxy* extension) {
    // The answer to a pending request will not come.
    const auto removed = badges_.extract(extension->iconPrefix());
    for (const QUrl& url : removed.mapped().badgedItems())
        setChanged(url);
}

void ShownItems::setChanged(const QUrl& url) {
    changed_.insert(url);
    notice_.request();
}

void ShownItems::signalChanges() {
    isSignalling_ = true;
    for (const QUrl& url : std::exchange(changed_, {}))
        Q_EMIT badgesChanged(url, icons(url));
    isSignalling_ = false;
}

} // namespace file_managers

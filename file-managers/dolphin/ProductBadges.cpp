#include "file-managers/dolphin/ProductBadges.h"

#include <algorithm>
#include <utility>

namespace file_managers {

ProductBadges::ProductBadges(ExtensionProxy& extension, const Items& items, Changed changed)
    : extension_(extension), items_(items), changed_(std::move(changed)) {
    for (QTimer* timer : {&sendTimer_, &retryTimer_, &rootFoldersRetry_})
        timer->setSingleShot(true);
    sendTimer_.callOnTimeout([this] { send(); });
    retryTimer_.callOnTimeout([this] { send(); });
    rootFoldersRetry_.callOnTimeout([this] { requestRootFolders(); });
    connect(&extension_, &ExtensionProxy::rootFoldersChanged, this,
            [this] { readRootFolders_.request(); });
    if (rootFolders_.request()) // before the badges, so that none of these is older
        requestRootFolders();
    requestOutdated();
}

void ProductBadges::request(const QUrl& item) {
    queue_.insert(item);
    if (!sendTimer_.isActive())
        sendTimer_.start(0); // collects requests until the file manager is idle
}

void ProductBadges::requestRootFolders() {
    extension_.requestRootFolders([this](auto folders) { rootFoldersRead(std::move(folders)); });
}

void ProductBadges::rootFoldersRead(RootFolders::List folders) {
    if (const auto pause = rootFolders_.take(std::move(folders)))
        rootFoldersRetry_.start(*pause);
    requestOutdated();
    if (rootFolders_.areOutdated())
        readRootFolders_.request();
}

/// What was answered since the last list may be of one in between, which nobody has read: such an
/// item is asked about again if it has a badge, or could have one now.
void ProductBadges::requestOutdated() {
    const QSet<QUrl> recent = std::exchange(recent_, {});
    for (const auto& [url, name] : items_) {
        const bool isDoubtful =
            recent.contains(url) && (badges_.contains(url) || rootFolders_.have(name));
        if (isDoubtful || rootFolders_.haveChanged(name))
            request(url);
    }
}

QString ProductBadges::icon(const QUrl& item) const {
    const QString badge = badges_.value(item);
    return badge.isEmpty() ? badge : QLatin1String("emblem-") + extension_.iconPrefix() + badge;
}

void ProductBadges::forget(const QUrl& item) {
    badges_.remove(item);
    queue_.remove(item);
    recent_.remove(item);
    refused_.removeOne(item);
    std::ranges::replace(pending_, item, QUrl());
}

/// What was refused goes last, so that it holds up nothing else.
void ProductBadges::send() {
    if (!pending_.isEmpty())
        return;
    Batch batch = takeFrom(queue_, batchSize);
    if (batch.items.isEmpty() && !retryTimer_.isActive())
        batch = takeFrom(refused_, refusedBatchSize_);
    if (batch.items.isEmpty())
        return;
    pending_ = batch.items;
    extension_.requestBadges(batch.urls, [this](const QStringList& badges) {
        if (badges.isEmpty())
            retryLater();
        else
            setBadges(badges);
        pending_.clear();
        send();
    });
}

template <typename Urls> ProductBadges::Batch ProductBadges::takeFrom(Urls& items, int most) const {
    Batch batch;
    qsizetype size = 0;
    for (auto next = items.begin(); next != items.end() && batch.items.size() < most;
         next = items.erase(next)) {
        const QString url = requestURL(*next);
        if (url.isEmpty() || !extension_.watches(*next))
            continue;
        size += url.size();
        if (size > maxBatchSize && !batch.items.isEmpty())
            break;
        batch.items.push_back(*next);
        batch.urls.push_back(url);
    }
    return batch;
}

void ProductBadges::setBadges(const QStringList& badges) {
    backoff_.reset();
    for (int index = 0; index < badges.size(); ++index) {
        if (!pending_[index].isEmpty())
            setBadge(pending_[index], badges[index]);
    }
}

void ProductBadges::setBadge(const QUrl& item, const QString& badge) {
    recent_.insert(item);
    if (badges_.value(item) == badge)
        return;
    if (badge.isEmpty())
        badges_.remove(item);
    else
        badges_.insert(item, badge);
    changed_(item);
}

/// Has the pending items requested again after a pause, in smaller batches: a single one may be
/// what is refused.
void ProductBadges::retryLater() {
    const QSet<QUrl> refused(refused_.cbegin(), refused_.cend());
    for (const QUrl& item : std::as_const(pending_)) {
        if (!item.isEmpty() && !refused.contains(item))
            refused_.push_back(item);
    }
    refusedBatchSize_ = std::max(1, int(pending_.size()) / 2);
    if (!retryTimer_.isActive())
        retryTimer_.start(backoff_.next());
}

} // namespace file_managers

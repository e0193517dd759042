#include "file-managers/dolphin/ProductBadges.h"

#include <algorithm>
#include <utility>

namespace file_managers {

ProductBadges::ProductBadges(ExtensionProxy& extension, const Items& items, Changed changed)
    : extension_(extension), items_(items), changed_(std::move(changed)) {
    for (QTimer* timer : {&sendTimer_, &retryTimer_})
        timer->setSingleShot(true);
    sendTimer_.callOnTimeout([this] { send(); });
    retryTimer_.callOnTimeout([this] { send(); });
    connect(&extension_, &ExtensionProxy::rootFoldersChanged, this, [this](const auto& names) {
        changedNames_.add(names);
        requestChanged_.request();
    });
    extension_.observeRootFolders(); // before any badge is requested
    requestRootFolders();
}

void ProductBadges::request(const ShownItem& item) {
    if (names_.contain(item.name) || badges_.contains(item.url))
        enqueue(item.url);
}

void ProductBadges::requestRootFolders() {
    extension_.requestNamesOfRootFolders([this](FolderNames names) {
        names_ = std::move(names);
        for (const ShownItem& item : items_)
            request(item);
    });
}

void ProductBadges::enqueue(const QUrl& item) {
    queue_.insert(item);
    if (!sendTimer_.isActive())
        sendTimer_.start(0); // collects requests until the file manager is idle
}

/// Requests the badges that a change of the root folders may have changed.
void ProductBadges::requestChanged() {
    const FolderNames names = std::exchange(changedNames_, {});
    if (names.areAny()) {
        requestRootFolders();
        return;
    }
    names_.add(names);
    for (const auto& [url, name] : items_) {
        if (names.contain(name))
            enqueue(url);
    }
}

QString ProductBadges::icon(const QUrl& item) const {
    const QString badge = badges_.value(item);
    return badge.isEmpty() ? badge : QLatin1String("emblem-") + extension_.iconPrefix() + badge;
}

void ProductBadges::forget(const QUrl& item) {
    badges_.remove(item);
    queue_.remove(item);
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

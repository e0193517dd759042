#include "file-managers/gtk/ProductBadges.h"

#include "file-managers/Limits.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

namespace file_managers {

/// The icon's whole name, as Thunar's plug-in has GVfs store it: these file managers draw that
/// emblem too, but equal names once.
void ProductBadges::addEmblem(FileInfo* file) const {
    const auto badge = badges_.find(file);
    if (badge == badges_.end())
        return;
    const std::string emblem = "emblem-" + extension_.iconPrefix() + badge->second;
    FM_CALL(file_info_add_emblem)(file, emblem.c_str());
}

void ProductBadges::forget(FileInfo* file) {
    items_.erase(file);
    badges_.erase(file);
}

ProductBadges::Files ProductBadges::badgedFiles() const {
    Files files;
    for (const auto& [file, badge] : badges_)
        files.push_back(file);
    return files;
}

void ProductBadges::request(FileInfo* file, NameHash name) {
    if (!names_.contain(name) && !items_.contains(file))
        return;
    enqueue(file);
    sendLater();
}

void ProductBadges::enqueue(FileInfo* file) {
    Item& item = items_[file];
    if (!item.isFailed && !std::exchange(item.isQueued, true))
        queue_.push_back(file);
}

void ProductBadges::requestRootFolders() {
    extension_.requestNamesOfRootFolders([this](FolderNames names) {
        names_ = std::move(names);
        for (const auto& [file, item] : shown_)
            request(file, item.name);
    });
}

/// Requests the badges that a change of the root folders may have changed.
void ProductBadges::requestChanged() {
    const FolderNames names = std::exchange(changedNames_, {});
    if (names.areAny()) {
        requestRootFolders();
        return;
    }
    names_.add(names);
    for (const auto& [file, item] : shown_) {
        if (names.contain(item.name))
            enqueue(file);
    }
    send();
}

/// Collects requests until the file manager is idle.
void ProductBadges::sendLater() {
    if (!sendTimer_.isActive() && !isPending_)
        sendTimer_.startWhenIdle();
}

ProductBadges::Batch ProductBadges::nextBatch() {
    if (!queue_.empty() || retried_.empty())
        return takeBatch(queue_, &Item::isQueued);
    Files files = std::move(retried_.back());
    retried_.pop_back();
    Batch batch = takeBatch(files, &Item::isFailed);
    if (!files.empty()) // names have become longer
        retried_.push_back(std::move(files));
    return batch;
}

ProductBadges::Batch ProductBadges::takeBatch(Files& files, bool Item::* isHere) {
    Batch batch;
    std::size_t size = 0;
    std::size_t taken = 0;
    for (; taken < files.size() && taken < batchSize; ++taken) {
        const auto item = items_.find(files[taken]);
        if (item == items_.end() || !(item->second.*isHere))
            continue;
        const Text url(FM_CALL(file_info_get_uri)(item->first));
        if (url && extension_.watches(url.get())) {
            size += std::strlen(url.get());
            if (size > maxBatchSize && !batch.urls.empty())
                break;
            batch.files.push_back(reference(item->first));
            batch.urls.emplace_back(url.get());
        }
        item->second.*isHere = false;
    }
    files.erase(files.begin(), files.begin() + static_cast<std::ptrdiff_t>(taken));
    return batch;
}

void ProductBadges::send() {
    if (isPending_)
        return;
    const auto batch = std::make_shared<const Batch>(nextBatch());
    if (!batch->files.empty()) {
        isPending_ = true;
        extension_.requestBadges(batch->urls,
                                 [this, batch](const auto& badges) { answered(*batch, badges); });
    } else if (!queue_.empty() || !retried_.empty()) {
        sendLater();
    }
}

void ProductBadges::answered(const Batch& batch, const std::vector<std::string>& badges) {
    isPending_ = false;
    if (badges.empty()) {
        retryLater(batch);
    } else {
        backoff_.reset();
        Files changed;
        for (std::size_t index = 0; index < badges.size(); ++index) {
            if (setBadge(batch.files[index].get(), badges[index]))
                changed.push_back(batch.files[index].get());
        }
        changed_(changed);
    }
    if (!queue_.empty() || !retried_.empty())
        sendLater();
}

/// Whether the badge is another one.
bool ProductBadges::setBadge(FileInfo* file, const std::string& badge) {
    const auto known = badges_.find(file);
    if (badge == (known != badges_.end() ? known->second : std::string()))
        return false;
    if (badge.empty())
        badges_.erase(known);
    else
        badges_[file] = badge;
    return true;
}

/// Divides what the extension has refused, since that may be for one of the items, or for their
/// number.
void ProductBadges::retryLater(const Batch& batch) {
    const std::size_t half = batch.files.size() / 2;
    Files parts[2];
    for (std::size_t index = 0; index < batch.files.size(); ++index) {
        FileInfo* const file = batch.files[index].get();
        if (!std::exchange(items_[file].isFailed, true))
            parts[index < half ? 0 : 1].push_back(file);
    }
    for (Files& part : parts) {
        if (!part.empty())
            failed_.push_back(std::move(part));
    }
    if (!retryTimer_.isActive())
        retryTimer_.start(backoff_.next());
}

void ProductBadges::retry() {
    std::ranges::move(failed_, std::back_inserter(retried_));
    failed_.clear();
    sendLater();
}

} // namespace file_managers

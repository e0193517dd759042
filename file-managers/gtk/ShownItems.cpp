#include "file-managers/gtk/ShownItems.h"

#include "Names.h"
#include "file-managers/Limits.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace file_managers {

ShownItems::~ShownItems() {
    for (const auto& [file, item] : items_)
        g_object_weak_unref(G_OBJECT(file), &itemGone, this);
}

void ShownItems::itemGone(void* self, GObject* file) {
    // The object is being destroyed: its address is only a key.
    static_cast<ShownItems*>(self)->items_.erase(reinterpret_cast<FileInfo*>(file));
}

void ShownItems::show(FileInfo* file) {
    const auto [place, isNew] = items_.try_emplace(file);
    Item& item = place->second;
    if (isNew) {
        g_object_weak_ref(G_OBJECT(file), &itemGone, this);
        if (!extension_.isRunning())
            extension_.start();
    }
    if (!item.badge.empty())
        FM_CALL(file_info_add_emblem)(file, (findersync::iconPrefix + item.badge).c_str());
    if (!std::exchange(item.hasNewBadge, false))
        request(file, item);
}

void ShownItems::requestAll() {
    for (auto& [file, item] : items_)
        request(file, item);
}

void ShownItems::removeBadges() {
    queue_.clear();
    std::vector<FileInfo*> badged;
    for (auto& [file, item] : items_) {
        item.isQueued = false;
        if (!item.badge.empty())
            badged.push_back(file);
    }
    for (FileInfo* file : badged)
        setBadge(file, {});
}

void ShownItems::request(FileInfo* file, Item& item) {
    if (!extension_.isRunning() || std::exchange(item.isQueued, true))
        return;
    queue_.push_back(file);
    sendLater();
}

/// Collects requests until the file manager is idle.
void ShownItems::sendLater() {
    if (!sendTimer_.isActive() && !isPending_)
        sendTimer_.startWhenIdle();
}

ShownItems::Batch ShownItems::nextBatch() {
    Batch batch;
    const std::size_t count = std::min<std::size_t>(queue_.size(), batchSize);
    for (std::size_t index = 0; index < count; ++index) {
        FileInfo* const file = queue_[index];
        const auto item = items_.find(file);
        if (item == items_.end() || !std::exchange(item->second.isQueued, false))
            continue;
        const Text url(FM_CALL(file_info_get_uri)(file));
        if (!url || !extension_.watches(url.get()))
            continue;
        batch.files.push_back(reference(file));
        batch.urls.emplace_back(url.get());
    }
    queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(count));
    return batch;
}

void ShownItems::send() {
    const auto batch = std::make_shared<const Batch>(nextBatch());
    if (batch->files.empty()) {
        if (!queue_.empty())
            sendLater();
        return;
    }
    isPending_ = true;
    extension_.requestBadges(batch->urls, [this, batch](const std::vector<std::string>& badges) {
        isPending_ = false;
        setBadges(*batch, badges);
        if (!queue_.empty())
            sendLater();
    });
}

void ShownItems::setBadges(const Batch& batch, const std::vector<std::string>& badges) {
    if (badges.size() != batch.files.size())
        return; // the request failed; if the extension ended, removeBadges() is called as well
    for (std::size_t index = 0; index < badges.size(); ++index)
        setBadge(batch.files[index].get(), badges[index]);
}

void ShownItems::setBadge(FileInfo* file, const std::string& badge) {
    const auto item = items_.find(file);
    if (item == items_.end() || item->second.badge == badge)
        return;
    item->second.badge = badge;
    item->second.hasNewBadge = true;
    FM_CALL(file_info_invalidate_extension_info)(file);
}

} // namespace file_managers

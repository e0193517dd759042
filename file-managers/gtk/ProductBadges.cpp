#include "file-managers/gtk/ProductBadges.h"

#include "file-managers/Limits.h"

#include <algorithm>
#include <memory>

namespace file_managers {

void ProductBadges::addEmblem(FileInfo* file) const {
    const auto badge = badges_.find(file);
    if (badge != badges_.end())
        FM_CALL(file_info_add_emblem)(file, (extension_.iconPrefix() + badge->second).c_str());
}

void ProductBadges::forget(FileInfo* file) {
    queued_.erase(file);
    badges_.erase(file);
}

std::vector<FileInfo*> ProductBadges::badgedFiles() const {
    std::vector<FileInfo*> files;
    for (const auto& [file, badge] : badges_)
        files.push_back(file);
    return files;
}

void ProductBadges::request(FileInfo* file) {
    if (!queued_.insert(file).second)
        return;
    queue_.push_back(file);
    sendLater();
}

/// Collects requests until the file manager is idle.
void ProductBadges::sendLater() {
    if (!sendTimer_.isActive() && !isPending_)
        sendTimer_.startWhenIdle();
}

ProductBadges::Batch ProductBadges::nextBatch() {
    Batch batch;
    const std::size_t count = std::min<std::size_t>(queue_.size(), batchSize);
    for (std::size_t index = 0; index < count; ++index) {
        FileInfo* const file = queue_[index];
        if (queued_.erase(file) == 0)
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

void ProductBadges::send() {
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

void ProductBadges::setBadges(const Batch& batch, const std::vector<std::string>& badges) {
    if (badges.size() != batch.files.size())
        return; // the request failed
    for (std::size_t index = 0; index < badges.size(); ++index)
        setBadge(batch.files[index].get(), badges[index]);
}

void ProductBadges::setBadge(FileInfo* file, const std::string& badge) {
    const auto known = badges_.find(file);
    if (badge == (known != badges_.end() ? known->second : std::string()))
        return;
    if (badge.empty())
        badges_.erase(known);
    else
        badges_[file] = badge;
    changed_(file);
}

} // namespace file_managers

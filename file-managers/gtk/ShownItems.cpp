#include "file-managers/gtk/ShownItems.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace file_managers {

namespace {

/// As many as are sent at a time: a folder of any size keeps neither side busy for long.
constexpr std::size_t batchSize = 1000;

std::string emblemName(const std::string& badge) {
    return FINDER_SYNC_GROUP "." + badge;
}

} // namespace

ShownItems::~ShownItems() {
    if (sendSource_ != 0)
        g_source_remove(sendSource_);
    for (const auto& [file, item] : items_)
        g_object_weak_unref(G_OBJECT(file), &itemGone, this);
}

void ShownItems::itemGone(void* self, GObject* file) {
    // Only its address is left of it.
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
        FM_CALL(file_info_add_emblem)(file, emblemName(item.badge).c_str());
    if (!std::exchange(item.hasJustBeenTold, false))
        ask(file, item);
}

void ShownItems::askAgain() {
    for (auto& [file, item] : items_)
        ask(file, item);
}

void ShownItems::forgetBadges() {
    toBeAsked_.clear();
    std::vector<FileInfo*> badged;
    for (auto& [file, item] : items_) {
        item.isToBeAsked = false;
        if (!item.badge.empty())
            badged.push_back(file);
    }
    for (FileInfo* file : badged)
        setBadge(file, {});
}

void ShownItems::ask(FileInfo* file, Item& item) {
    if (!extension_.isRunning() || std::exchange(item.isToBeAsked, true))
        return;
    toBeAsked_.push_back(file);
    sendLater();
}

/// Sends what has come up by the time that the file manager has nothing else to do.
void ShownItems::sendLater() {
    if (sendSource_ != 0 || isAsking_)
        return;
    const auto send = [](void* self) -> gboolean {
        static_cast<ShownItems*>(self)->sendSource_ = 0;
        static_cast<ShownItems*>(self)->send();
        return G_SOURCE_REMOVE;
    };
    sendSource_ = g_idle_add(send, this);
}

ShownItems::Request ShownItems::nextRequest() {
    Request request;
    const std::size_t count = std::min(toBeAsked_.size(), batchSize);
    for (std::size_t index = 0; index < count; ++index) {
        FileInfo* const file = toBeAsked_[index];
        const auto item = items_.find(file);
        if (item == items_.end() || !std::exchange(item->second.isToBeAsked, false))
            continue;
        const Text url(FM_CALL(file_info_get_uri)(file));
        if (!url || !extension_.watches(url.get()))
            continue;
        request.files.push_back(reference(file));
        request.urls.emplace_back(url.get());
    }
    toBeAsked_.erase(toBeAsked_.begin(), toBeAsked_.begin() + static_cast<std::ptrdiff_t>(count));
    return request;
}

void ShownItems::send() {
    Request request = nextRequest();
    if (request.files.empty()) {
        if (!toBeAsked_.empty())
            sendLater();
        return;
    }
    isAsking_ = true;
    const std::vector<std::string> urls = std::move(request.urls);
    const auto sent = std::make_shared<Request>(std::move(request));
    extension_.requestBadges(urls, [this, sent](const std::vector<std::string>& badges) {
        isAsking_ = false;
        take(*sent, badges);
        if (!toBeAsked_.empty())
            sendLater();
    });
}

void ShownItems::take(const Request& request, const std::vector<std::string>& badges) {
    if (badges.size() != request.files.size())
        return; // the extension has ended, which is told otherwise
    for (std::size_t index = 0; index < badges.size(); ++index)
        setBadge(request.files[index].get(), badges[index]);
}

void ShownItems::setBadge(FileInfo* file, const std::string& badge) {
    const auto item = items_.find(file);
    if (item == items_.end() || item->second.badge == badge)
        return;
    item->second.badge = badge;
    item->second.hasJustBeenTold = true;
    FM_CALL(file_info_invalidate_extension_info)(file);
}

} // namespace file_managers

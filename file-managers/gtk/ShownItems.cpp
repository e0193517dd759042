#include "file-managers/gtk/ShownItems.h"

#include <utility>

namespace file_managers {

ShownItems::~ShownItems() {
    for (const auto& [file, isUpdated] : files_)
        g_object_weak_unref(G_OBJECT(file), &itemGone, this);
}

void ShownItems::itemGone(void* self, GObject* object) {
    // The object is being destroyed: its address is only a key.
    auto& shown = *static_cast<ShownItems*>(self);
    auto* const file = reinterpret_cast<FileInfo*>(object);
    shown.files_.erase(file);
    for (auto& [name, badges] : shown.badges_)
        badges.forget(file);
}

void ShownItems::show(FileInfo* file) {
    const auto [place, isNew] = files_.try_emplace(file, false);
    if (isNew) {
        g_object_weak_ref(G_OBJECT(file), &itemGone, this);
        products_.start();
    }
    const bool isOwnUpdate = std::exchange(place->second, false);
    for (auto& [name, badges] : badges_) {
        badges.addEmblem(file);
        if (!isOwnUpdate)
            badges.request(file);
    }
}

void ShownItems::productChanged(ExtensionProxy& extension, ExtensionProxy::Change change) {
    using enum ExtensionProxy::Change;
    if (change == Appeared)
        requestAll(extension);
    else if (change == Gone)
        removeBadges(extension.busName());
}

void ShownItems::requestAll(ExtensionProxy& extension) {
    const auto changed = [this](const ProductBadges::Files& files) { updateSoon(files); };
    auto& badges = badges_.try_emplace(extension.busName(), extension, changed).first->second;
    for (const auto& [file, isUpdated] : files_)
        badges.request(file);
}

void ShownItems::removeBadges(const std::string& busName) {
    const auto gone = badges_.extract(busName);
    updateSoon(gone.mapped().badgedFiles());
}

void ShownItems::updateSoon(const ProductBadges::Files& files) {
    outdated_.insert(files.begin(), files.end());
    if (!outdated_.empty())
        update_.request();
}

/// Has the file manager ask for the emblems anew.
void ShownItems::update() {
    for (FileInfo* const file : std::exchange(outdated_, {})) {
        const auto shown = files_.find(file);
        if (shown == files_.end())
            continue;
        shown->second = true;
        FM_CALL(file_info_invalidate_extension_info)(file);
    }
}

} // namespace file_managers

#include "file-managers/gtk/ShownItems.h"

#include <utility>

namespace file_managers {

ShownItems::~ShownItems() {
    for (const auto& [file, item] : files_)
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
    const auto [place, isNew] = files_.try_emplace(file);
    ShownItem& item = place->second;
    if (isNew) {
        g_object_weak_ref(G_OBJECT(file), &itemGone, this);
        products_.start();
    }
    const Text name(FM_CALL(file_info_get_name)(file)); // another one than before, after a rename
    item.name = nameOf(name ? name.get() : "");
    const bool isOwnUpdate = std::exchange(item.isUpdated, false);
    for (auto& [busName, badges] : badges_) {
        badges.addEmblem(file);
        if (!isOwnUpdate)
            badges.request(file, item.name);
    }
}

void ShownItems::productChanged(ExtensionProxy& extension, ExtensionProxy::Change change) {
    using enum ExtensionProxy::Change;
    if (change == Appeared)
        addBadges(extension);
    else if (change == Gone)
        removeBadges(extension.busName());
}

void ShownItems::addBadges(ExtensionProxy& extension) {
    const auto changed = [this](const ProductBadges::Files& files) { updateSoon(files); };
    badges_.try_emplace(extension.busName(), extension, files_, changed);
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
        shown->second.isUpdated = true;
        FM_CALL(file_info_invalidate_extension_info)(file);
    }
}

} // namespace file_managers

#include "file-managers/gtk/ShownItems.h"

#include <utility>

namespace file_managers {

ShownItems::~ShownItems() {
    for (const auto& [file, isUpdated] : files_)
        g_object_weak_unref(G_OBJECT(file), &itemGone, this);
}

void ShownItems::itemGone(void* self, GObject* object) {
    // The object is being destroyed: its address is only a key.
    auto& [products, files, badges] = *static_cast<ShownItems*>(self);
    auto* const file = reinterpret_cast<FileInfo*>(object);
    files.erase(file);
    for (auto& [name, ofProduct] : badges)
        ofProduct.forget(file);
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
    if (change == ExtensionProxy::Change::Gone)
        removeBadges(extension.busName());
    else if (change != ExtensionProxy::Change::Menus)
        requestAll(extension);
}

void ShownItems::requestAll(ExtensionProxy& extension) {
    const auto changed = [this](FileInfo* file) { update(file); };
    auto& badges = badges_.try_emplace(extension.busName(), extension, changed).first->second;
    for (const auto& [file, isUpdated] : files_)
        badges.request(file);
}

void ShownItems::removeBadges(const std::string& busName) {
    const auto gone = badges_.extract(busName);
    for (FileInfo* file : gone.mapped().badgedFiles())
        update(file);
}

void ShownItems::update(FileInfo* file) {
    const auto shown = files_.find(file);
    if (shown == files_.end())
        return;
    shown->second = true;
    FM_CALL(file_info_invalidate_extension_info)(file);
}

} // namespace file_managers

#include "file-managers/gtk/MenuItems.h"

#include <memory>

namespace file_managers {

namespace {

/// What a menu entry needs when it is picked.
struct Pick {
    Extension& extension;
    std::string selector;
    std::vector<std::string> urls;
};

std::string escapedLabel(const std::string& title) {
    std::string label;
    for (const char character : title)
        label.append(character == '_' ? 2 : 1, character);
    return label;
}

} // namespace

GList* menuItems(Extension& extension, const std::vector<std::string>& urls, NewMenuItem newItem) {
    if (!extension.isRunning())
        extension.start();
    GList* items = nullptr;
    for (const MenuEntry& entry : extension.menuForItems(urls)) {
        const std::string name = "FinderSync::" + entry.selector;
        const std::string icon = FINDER_SYNC_GROUP "." + entry.image;
        GObject* const item =
            newItem(name.c_str(), escapedLabel(entry.title).c_str(), "", icon.c_str());
        const auto picked = [](GObject*, void* data) {
            const auto& pick = *static_cast<Pick*>(data);
            pick.extension.performAction(pick.selector, pick.urls);
        };
        const auto forget = [](void* data, GClosure*) { delete static_cast<Pick*>(data); };
        auto pick = std::make_unique<Pick>(Pick{extension, entry.selector, urls});
        g_signal_connect_data(item, "activate", G_CALLBACK(+picked), pick.release(), +forget,
                              GConnectFlags(0));
        items = g_list_append(items, item);
    }
    return items;
}

} // namespace file_managers

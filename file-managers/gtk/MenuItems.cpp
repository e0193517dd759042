#include "file-managers/gtk/MenuItems.h"

#include "Names.h"

#include <memory>
#include <string>
#include <vector>

namespace file_managers {

namespace {

/// What an item sends when it is picked.
struct Action {
    ExtensionProxy& extension;
    std::string selector;
    std::vector<std::string> urls;
};

/// Doubles underscores, so that none marks an access key.
std::string escapedLabel(const std::string& title) {
    std::string label;
    for (const char character : title)
        label.append(character == '_' ? 2 : 1, character);
    return label;
}

void performWhenPicked(GObject* item, std::unique_ptr<Action> action) {
    const auto picked = [](GObject*, void* data) {
        const auto& [extension, selector, urls] = *static_cast<Action*>(data);
        extension.performAction(selector, urls);
    };
    const auto destroy = [](void* data, GClosure*) { delete static_cast<Action*>(data); };
    g_signal_connect_data(item, "activate", G_CALLBACK(+picked), action.release(), +destroy,
                          GConnectFlags(0));
}

} // namespace

GList* menuItems(ExtensionProxy& extension, GList* files, const MenuFunctions& functions) {
    std::vector<std::string> urls;
    for (GList* file = files; file != nullptr; file = file->next) {
        const Text url(functions.url(file->data));
        if (!url)
            return nullptr; // the extension could not tell which file this is
        urls.emplace_back(url.get());
    }
    if (!extension.isRunning())
        extension.start();
    GList* items = nullptr;
    for (const MenuEntry& entry : extension.menuForItems(urls)) {
        const std::string name = "FinderSync::" + entry.selector;
        const std::string icon = findersync::iconPrefix + entry.image;
        GObject* const item =
            functions.newItem(name.c_str(), escapedLabel(entry.title).c_str(), "", icon.c_str());
        performWhenPicked(item, std::make_unique<Action>(Action{extension, entry.selector, urls}));
        items = g_list_append(items, item);
    }
    return items;
}

} // namespace file_managers

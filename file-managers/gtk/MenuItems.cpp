#include "file-managers/gtk/MenuItems.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace file_managers {

namespace {

struct Selection {
    std::vector<Object<GObject>> files;
    char* (*url)(void* file);
};

/// What an item sends when it is picked.
struct Action {
    Products& products;
    std::string busName;
    std::string selector;
    std::shared_ptr<const Selection> selection;
};

/// Without those of files that are gone, and of items that extensions are not told of.
std::vector<std::string> urlsOf(const Selection& selection) {
    std::vector<std::string> urls;
    for (const Object<GObject>& file : selection.files) {
        if (const Text url{selection.url(file.get())}; url && composedPath(url.get()))
            urls.emplace_back(url.get());
    }
    return urls;
}

/// Doubles underscores, so that none marks an access key.
std::string escapedLabel(const std::string& title) {
    std::string label;
    for (const char character : title)
        label.append(character == '_' ? 2 : 1, character);
    return label;
}

void performWhenPicked(GObject* item, Action action) {
    const auto picked = [](GObject*, void* data) {
        const auto& [products, busName, selector, selection] = *static_cast<Action*>(data);
        products.performAction(busName, selector, urlsOf(*selection));
    };
    const auto destroy = [](void* data, GClosure*) { delete static_cast<Action*>(data); };
    g_signal_connect_data(item, "activate", G_CALLBACK(+picked), new Action(std::move(action)),
                          +destroy, GConnectFlags(0));
}

} // namespace

GList* menuItems(Products& products, GList* files, const MenuFunctions& functions) {
    const auto selection =
        std::make_shared<Selection>(Selection{.files = {}, .url = functions.url});
    for (GList* file = files; file != nullptr; file = file->next)
        selection->files.push_back(reference(static_cast<GObject*>(file->data)));
    const auto urls = urlsOf(*selection);
    if (urls.empty() || urls.size() != selection->files.size())
        return nullptr;
    GList* items = nullptr;
    for (const auto& [busName, iconPrefix, entries] : products.menusForItems(urls)) {
        for (const MenuEntry& entry : entries) {
            // File managers tell items apart by their names.
            const std::string name = busName + "::" + std::to_string(g_list_length(items));
            const std::string icon = iconPrefix + entry.image;
            GObject* const item = functions.newItem(name.c_str(), escapedLabel(entry.title).c_str(),
                                                    "", icon.c_str());
            performWhenPicked(item, {products, busName, entry.selector, selection});
            items = g_list_append(items, item);
        }
    }
    return items;
}

} // namespace file_managers

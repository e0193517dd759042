// The plug-in of Thunar, whose plug-ins can offer menu entries and no badges.

#include "file-managers/gtk/Extension.h"
#include "file-managers/gtk/Handles.h"
#include "file-managers/gtk/MenuItems.h"

#include <string>
#include <vector>

extern "C" { // some of its headers do not say that they are C
#include <thunarx/thunarx.h>
}

namespace {

using namespace file_managers;

/// Belongs to the process and not to a provider: Thunar drops a provider that has not been wanted
/// for a while, and the first menu of the next one must know the extension already.
Extension& extension() {
    // Nothing has to follow its changes, since Thunar asks anew for every menu.
    static Extension only([](Extension::Change) {});
    return only;
}

/// The type of the provider, once it is registered.
GType& provider() {
    static GType type = G_TYPE_INVALID;
    return type;
}

GList* fileMenuItems(ThunarxMenuProvider*, GtkWidget*, GList* files) {
    std::vector<std::string> urls;
    for (GList* file = files; file != nullptr; file = file->next) {
        const Text url(thunarx_file_info_get_uri(THUNARX_FILE_INFO(file->data)));
        if (!url)
            return nullptr; // nobody knows what this file is
        urls.emplace_back(url.get());
    }
    return menuItems(extension(), urls,
                     [](const char* name, const char* label, const char* tip, const char* icon) {
                         return G_OBJECT(thunarx_menu_item_new(name, label, tip, icon));
                     });
}

void initializeMenuProvider(void* interface, void*) {
    static_cast<ThunarxMenuProviderIface*>(interface)->get_file_menu_items = &fileMenuItems;
}

GType registerProvider(ThunarxProviderPlugin* plugin) {
    const GTypeInfo type = {.class_size = sizeof(GObjectClass),
                            .base_init = nullptr,
                            .base_finalize = nullptr,
                            .class_init = nullptr,
                            .class_finalize = nullptr,
                            .class_data = nullptr,
                            .instance_size = sizeof(GObject),
                            .n_preallocs = 0,
                            .instance_init = nullptr,
                            .value_table = nullptr};
    const GInterfaceInfo menu = {&initializeMenuProvider, nullptr, nullptr};
    const GType registered = thunarx_provider_plugin_register_type(
        plugin, G_TYPE_OBJECT, "FinderSyncProvider", &type, GTypeFlags(0));
    thunarx_provider_plugin_add_interface(plugin, registered, THUNARX_TYPE_MENU_PROVIDER, &menu);
    return registered;
}

} // namespace

extern "C" {

G_MODULE_EXPORT void thunar_extension_initialize(ThunarxProviderPlugin* plugin) {
    // Calls that are under way come back into this code, and so do items of open menus.
    thunarx_provider_plugin_set_resident(plugin, TRUE);
    provider() = registerProvider(plugin);
    // Thunar does not tell what it shows; started now, the extension is there for the first menu.
    extension().start();
}

G_MODULE_EXPORT void thunar_extension_shutdown() {}

G_MODULE_EXPORT void thunar_extension_list_types(const GType** types, int* count) {
    *types = &provider();
    *count = 1;
}

} // extern "C"

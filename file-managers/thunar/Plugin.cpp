// The plug-in of Thunar, whose plug-ins can add menu entries but no badges.

#include "file-managers/gtk/Handles.h"
#include "file-managers/gtk/MenuItems.h"
#include "file-managers/gtk/Products.h"

extern "C" { // some of its headers do not say that they are C
#include <thunarx/thunarx.h>
}

namespace {

using namespace file_managers;

/// Outlive every provider: Thunar drops a provider that it has not used for a while, and the next
/// one's first menu is to find the extensions connected.
Products& products() {
    // Nothing follows their changes, since Thunar asks for the entries of every menu.
    static Products all([](ExtensionProxy&, ExtensionProxy::Change) {});
    return all;
}

/// The provider's type, once it is registered.
GType& provider() {
    static GType type = G_TYPE_INVALID;
    return type;
}

char* urlOf(void* file) {
    return thunarx_file_info_get_uri(THUNARX_FILE_INFO(file));
}

/// Whether the files are selected in a window's view. Of the folders in the location bar and in the
/// side pane, Thunar tells the same; but what the view shows lies below the current folder, even if
/// it is found by a search.
bool areInView(GtkWidget* window, GList* files) {
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(window), "current-directory") == nullptr)
        return true; // the desktop
    Object<GObject> folder;
    g_object_get(window, "current-directory", static_cast<GObject**>(Out(folder)), nullptr);
    const Text url(folder ? urlOf(folder.get()) : nullptr);
    if (!url)
        return false;
    const Object<GFile> around(g_file_new_for_uri(url.get()));
    for (; files != nullptr; files = files->next) {
        const Text selected(urlOf(files->data));
        const Object<GFile> file(g_file_new_for_uri(selected ? selected.get() : ""));
        if (g_file_has_prefix(file.get(), around.get()) == FALSE)
            return false;
    }
    return true;
}

GList* fileMenuItems(ThunarxMenuProvider*, GtkWidget* window, GList* files) {
    if (!areInView(window, files))
        return nullptr;
    products().startForUser(); // for the next menu
    const auto newItem = [](const char* name, const char* label, const char* tip,
                            const char* icon) {
        return G_OBJECT(thunarx_menu_item_new(name, label, tip, icon));
    };
    return menuItems(products(), files, {.url = &urlOf, .newItem = newItem});
}

void initializeMenuProvider(void* interface, void*) {
    static_cast<ThunarxMenuProviderIface*>(interface)->get_file_menu_items = &fileMenuItems;
}

GType registerProvider(ThunarxProviderPlugin* plugin) {
    GTypeInfo type = {};
    type.class_size = sizeof(GObjectClass);
    type.instance_size = sizeof(GObject);
    const GInterfaceInfo menu = {&initializeMenuProvider, nullptr, nullptr};
    const GType registered = thunarx_provider_plugin_register_type(
        plugin, G_TYPE_OBJECT, "FinderSyncProductsProvider", &type, GTypeFlags(0));
    thunarx_provider_plugin_add_interface(plugin, registered, THUNARX_TYPE_MENU_PROVIDER, &menu);
    return registered;
}

} // namespace

extern "C" {

G_MODULE_EXPORT void thunar_extension_initialize(ThunarxProviderPlugin* plugin) {
    // Pending calls and the items of open menus call back into this code.
    thunarx_provider_plugin_set_resident(plugin, TRUE);
    provider() = registerProvider(plugin);
    // Thunar does not report what it shows. Started now, extensions are ready for the first menu.
    products().start();
}

G_MODULE_EXPORT void thunar_extension_shutdown() {}

G_MODULE_EXPORT void thunar_extension_list_types(const GType** types, int* count) {
    *types = &provider();
    *count = 1;
}

} // extern "C"

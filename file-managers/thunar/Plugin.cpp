// The plug-in of Thunar, whose plug-ins can add menu entries but no badges.

#include "file-managers/gtk/ExtensionProxy.h"
#include "file-managers/gtk/MenuItems.h"

extern "C" { // some of its headers do not say that they are C
#include <thunarx/thunarx.h>
}

namespace {

using namespace file_managers;

/// Outlives every provider: Thunar drops a provider that it has not used for a while, and the next
/// one's first menu is to find the extension connected.
ExtensionProxy& extension() {
    // Nothing follows its changes, since Thunar asks for the entries of every menu.
    static ExtensionProxy only([](ExtensionProxy::Change) {});
    return only;
}

/// The provider's type, once it is registered.
GType& provider() {
    static GType type = G_TYPE_INVALID;
    return type;
}

GList* fileMenuItems(ThunarxMenuProvider*, GtkWidget*, GList* files) {
    const auto url = [](void* file) { return thunarx_file_info_get_uri(THUNARX_FILE_INFO(file)); };
    const auto newItem = [](const char* name, const char* label, const char* tip,
                            const char* icon) {
        return G_OBJECT(thunarx_menu_item_new(name, label, tip, icon));
    };
    return menuItems(extension(), files, {.url = url, .newItem = newItem});
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
        plugin, G_TYPE_OBJECT, "FinderSyncProvider", &type, GTypeFlags(0));
    thunarx_provider_plugin_add_interface(plugin, registered, THUNARX_TYPE_MENU_PROVIDER, &menu);
    return registered;
}

} // namespace

extern "C" {

G_MODULE_EXPORT void thunar_extension_initialize(ThunarxProviderPlugin* plugin) {
    // Pending calls and the items of open menus call back into this code.
    thunarx_provider_plugin_set_resident(plugin, TRUE);
    provider() = registerProvider(plugin);
    // Thunar does not report what it shows. Started now, the extension is ready for the first menu.
    extension().start();
}

G_MODULE_EXPORT void thunar_extension_shutdown() {}

G_MODULE_EXPORT void thunar_extension_list_types(const GType** types, int* count) {
    *types = &provider();
    *count = 1;
}

} // extern "C"

// The plug-in of Thunar, whose plug-ins can add menu entries but no badges. These go by way of
// GVfs.

#include "file-managers/gtk/Handles.h"
#include "file-managers/gtk/MenuItems.h"
#include "file-managers/gtk/PacedCall.h"
#include "file-managers/gtk/Products.h"
#include "file-managers/thunar/AnnouncedFolders.h"
#include "file-managers/thunar/FolderEmblems.h"
#include "file-managers/thunar/Windows.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

extern "C" { // some of its headers do not say that they are C
#include <thunarx/thunarx.h>
}

namespace {

using namespace file_managers;

/// How long extensions have after the start, until what the last Thunar has left of their badges
/// is taken away.
constexpr std::chrono::seconds timeToAnnounce(5);

class Service {
public:
    /// Thunar does not report what it shows. Started now, extensions are ready for the first menu.
    Service() {
        products_.start();
        removeUnwanted_.start(hasBadges_ ? timeToAnnounce : std::chrono::seconds(0));
    }

    [[nodiscard]] Products& products() { return products_; }

private:
    void changed(ExtensionProxy& extension, ExtensionProxy::Change change);

    const bool hasBadges_ = g_strcmp0(g_getenv("FINDER_SYNC_THUNAR_BADGES"), "0") != 0;
    Products products_{[this](ExtensionProxy& extension, ExtensionProxy::Change change) {
        if (hasBadges_) // menus need no notice: Thunar asks for the entries of each
            changed(extension, change);
    }};
    std::map<std::string, std::vector<std::string>> unshown_; ///< emblems, by URL
    PacedCall show_{[this] { showEmblems(std::exchange(unshown_, {})); }};
    FolderEmblems emblems_{[this](const std::string& url, std::vector<std::string> emblems) {
        unshown_[url] = std::move(emblems);
        show_.request();
    }};
    std::map<std::string, AnnouncedFolders> announced_; ///< by bus name
    SingleShotTimer removeUnwanted_{[this] { emblems_.removeUnwanted(); }};
};

void Service::changed(ExtensionProxy& extension, ExtensionProxy::Change change) {
    using enum ExtensionProxy::Change;
    if (change == Appeared)
        announced_.try_emplace(extension.busName(), extension, emblems_);
    else if (change == Gone)
        announced_.erase(extension.busName());
}

/// Outlives every provider: Thunar drops a provider that it has not used for a while, and the next
/// one's first menu is to find the extensions connected.
Service& service() {
    static Service instance;
    return instance;
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
    Products& products = service().products();
    products.startForUser(); // for the next menu
    const auto newItem = [](const char* name, const char* label, const char* tip,
                            const char* icon) {
        return G_OBJECT(thunarx_menu_item_new(name, label, tip, icon));
    };
    return menuItems(products, files, {.url = &urlOf, .newItem = newItem});
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
    (void)service();
}

G_MODULE_EXPORT void thunar_extension_shutdown() {}

G_MODULE_EXPORT void thunar_extension_list_types(const GType** types, int* count) {
    *types = &provider();
    *count = 1;
}

} // extern "C"

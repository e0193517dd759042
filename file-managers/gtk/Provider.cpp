#include "file-managers/gtk/Provider.h"

#include "file-managers/gtk/Extension.h"
#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/MenuItems.h"
#include "file-managers/gtk/ShownItems.h"

#include <string>
#include <vector>

namespace file_managers {

namespace {

/// What a provider does; the provider itself is a GObject.
class Service {
public:
    explicit Service(MenuProvider* provider) : provider_(provider) {}

    void show(FileInfo* file) { shown_.show(file); }
    GList* menuItems(GList* files);

private:
    void changed(Extension::Change change);

    MenuProvider* provider_; ///< owns this object
    Extension extension_{[this](Extension::Change change) { changed(change); }};
    ShownItems shown_{extension_};
};

void Service::changed(Extension::Change change) {
    if (change == Extension::Change::Gone)
        shown_.forgetBadges();
    else if (change != Extension::Change::Menus)
        shown_.askAgain();
    // File managers keep the entries for as long as the selection stays the same.
    FM_CALL(menu_provider_emit_items_updated_signal)(provider_);
}

GList* Service::menuItems(GList* files) {
    std::vector<std::string> urls;
    for (GList* file = files; file != nullptr; file = file->next) {
        const Text url(FM_CALL(file_info_get_uri)(static_cast<FileInfo*>(file->data)));
        if (!url)
            return nullptr; // nobody knows what this file is
        urls.emplace_back(url.get());
    }
    return file_managers::menuItems(
        extension_, urls,
        [](const char* name, const char* label, const char* tip, const char* icon) {
            return G_OBJECT(FM_CALL(menu_item_new)(name, label, tip, icon));
        });
}

struct Provider {
    GObject parent;
    Service* service;
};

struct ProviderClass {
    GObjectClass parent;
};

Service& serviceOf(void* provider) {
    return *static_cast<Provider*>(provider)->service;
}

void initialize(GTypeInstance* instance, void*) {
    auto* const provider = reinterpret_cast<Provider*>(instance);
    provider->service = new Service(reinterpret_cast<MenuProvider*>(provider));
}

void finalize(GObject* object) {
    delete reinterpret_cast<Provider*>(object)->service;
    auto* const parent = g_type_class_peek_parent(G_OBJECT_GET_CLASS(object));
    static_cast<GObjectClass*>(parent)->finalize(object);
}

void initializeClass(void* type, void*) {
    static_cast<GObjectClass*>(type)->finalize = &finalize;
}

/// Answers at once, from what is known: a request that is left open would hold up all later ones.
OperationResult updateFileInfo(InfoProvider* provider, FileInfo* file, GClosure*,
                               OperationHandle**) {
    serviceOf(provider).show(file);
    return FM_CONSTANT(OPERATION_COMPLETE);
}

void cancelUpdate(InfoProvider*, OperationHandle*) {}

#if defined(FINDER_SYNC_NAUTILUS)
GList* fileItems(MenuProvider* provider, GList* files) {
    return serviceOf(provider).menuItems(files);
}
#else
GList* fileItems(MenuProvider* provider, GtkWidget*, GList* files) {
    return serviceOf(provider).menuItems(files);
}
#endif

void initializeInfoProvider(void* interface, void*) {
    static_cast<InfoProviderInterface*>(interface)->update_file_info = &updateFileInfo;
    static_cast<InfoProviderInterface*>(interface)->cancel_update = &cancelUpdate;
}

void initializeMenuProvider(void* interface, void*) {
    static_cast<MenuProviderInterface*>(interface)->get_file_items = &fileItems;
}

} // namespace

GType registerProvider(GTypeModule* module) {
    const GTypeInfo type = {.class_size = sizeof(ProviderClass),
                            .base_init = nullptr,
                            .base_finalize = nullptr,
                            .class_init = &initializeClass,
                            .class_finalize = nullptr,
                            .class_data = nullptr,
                            .instance_size = sizeof(Provider),
                            .n_preallocs = 0,
                            .instance_init = &initialize,
                            .value_table = nullptr};
    const GInterfaceInfo info = {&initializeInfoProvider, nullptr, nullptr};
    const GInterfaceInfo menu = {&initializeMenuProvider, nullptr, nullptr};
    const GType provider = g_type_module_register_type(module, G_TYPE_OBJECT, "FinderSyncProvider",
                                                       &type, GTypeFlags(0));
    g_type_module_add_interface(module, provider, FM_TYPE(INFO_PROVIDER), &info);
    g_type_module_add_interface(module, provider, FM_TYPE(MENU_PROVIDER), &menu);
    return provider;
}

} // namespace file_managers

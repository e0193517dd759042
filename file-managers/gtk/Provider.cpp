#include "file-managers/gtk/Provider.h"

#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/MenuItems.h"
#include "file-managers/gtk/PacedCall.h"
#include "file-managers/gtk/Products.h"
#include "file-managers/gtk/ShownItems.h"
#include "file-managers/gtk/SingleShotTimer.h"

namespace file_managers {

namespace {

/// How long after the signal file managers may ask for entries because of it.
constexpr std::chrono::milliseconds afterEmission(1000);

/// File managers spend milliseconds on entries anew. What changes them changes badges too, whose
/// answers come meanwhile, and are shown first.
constexpr std::chrono::milliseconds afterBadges(20);

/// The provider's part in C++. The provider itself is a GObject.
class Service {
public:
    explicit Service(MenuProvider* provider) : provider_(provider) {}

    void show(FileInfo* file) { shown_.show(file); }
    GList* menuItems(GList* files);

private:
    using Change = ExtensionProxy::Change;

    void changed(ExtensionProxy& extension, Change change);
    void emitItemsUpdated();

    MenuProvider* provider_; ///< owns this object
    Clock::time_point emitted_;
    PacedCall menusOutdated_{[this] { emitItemsUpdated(); }};
    SingleShotTimer menusOutdatedSoon_{[this] { menusOutdated_.request(); }};
    Products products_{
        [this](ExtensionProxy& extension, Change change) { changed(extension, change); }};
    ShownItems shown_{products_};
};

void Service::changed(ExtensionProxy& extension, Change change) {
    shown_.productChanged(extension, change);
    if (!menusOutdatedSoon_.isActive())
        menusOutdatedSoon_.start(afterBadges);
}

/// File managers cache the entries until the selection changes, or this.
void Service::emitItemsUpdated() {
    emitted_ = Clock::now();
    FM_CALL(menu_provider_emit_items_updated_signal)(provider_);
}

GList* Service::menuItems(GList* files) {
    // An extension that ends as soon as it is started has the file manager ask for the entries of
    // the selected item each time, though the user does nothing.
    if (Clock::now() < emitted_ + afterEmission)
        products_.start();
    else
        products_.startForUser();
    const auto url = [](void* object) {
        auto* const file = static_cast<FileInfo*>(object);
        return FM_CALL(file_info_is_gone)(file) != FALSE ? nullptr
                                                         : FM_CALL(file_info_get_uri)(file);
    };
    const auto newItem = [](const char* name, const char* label, const char* tip,
                            const char* icon) {
        return G_OBJECT(FM_CALL(menu_item_new)(name, label, tip, icon));
    };
    return file_managers::menuItems(products_, files, {.url = url, .newItem = newItem});
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

/// Completes at once, with the last known badge: the file manager starts no other update while one
/// is pending.
OperationResult updateFileInfo(InfoProvider* provider, FileInfo* file, GClosure*,
                               OperationHandle**) {
    serviceOf(provider).show(file);
    return FM_CONSTANT(OPERATION_COMPLETE);
}

void cancelUpdate(InfoProvider*, OperationHandle*) {}

#if defined(FM_NAUTILUS)
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
    GTypeInfo type = {};
    type.class_size = sizeof(ProviderClass);
    type.class_init = &initializeClass;
    type.instance_size = sizeof(Provider);
    type.instance_init = &initialize;
    const GInterfaceInfo info = {&initializeInfoProvider, nullptr, nullptr};
    const GInterfaceInfo menu = {&initializeMenuProvider, nullptr, nullptr};
    const GType provider = g_type_module_register_type(
        module, G_TYPE_OBJECT, "FinderSyncProductsProvider", &type, GTypeFlags(0));
    g_type_module_add_interface(module, provider, FM_TYPE(INFO_PROVIDER), &info);
    g_type_module_add_interface(module, provider, FM_TYPE(MENU_PROVIDER), &menu);
    return provider;
}

} // namespace file_managers

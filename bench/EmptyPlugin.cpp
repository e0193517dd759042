// empty-plugin: what the plug-in for Caja is compared with. It provides the same two interfaces and
// returns at once.
//
// $FINDER_SYNC_BENCH_BADGED may hold the URL of an item. SIGUSR1 then gives that item the emblem of
// the plug-in's badge, or takes it away: that is the barest way to change what a window shows.

#include <csignal>
#include <cstdlib>
#include <glib-unix.h>
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-info-provider.h>
#include <libcaja-extension/caja-menu-provider.h>
#include <string_view>

namespace {

/// The item that signals are about.
struct {
    const char* url = nullptr;
    CajaFileInfo* file = nullptr; ///< once it is shown; the window keeps it
    bool isBadged = false;
} item;

gboolean toggle(void*) {
    item.isBadged = !item.isBadged;
    if (item.file != nullptr)
        caja_file_info_invalidate_extension_info(item.file);
    return G_SOURCE_CONTINUE;
}

void show(CajaFileInfo* file) {
    if (item.file == nullptr) {
        char* const url = caja_file_info_get_uri(file);
        if (std::string_view(url) == item.url)
            item.file = file;
        g_free(url);
    }
    if (file == item.file && item.isBadged)
        caja_file_info_add_emblem(file, FINDER_SYNC_GROUP ".FolderIco");
}

CajaOperationResult updateFileInfo(CajaInfoProvider*, CajaFileInfo* file, GClosure*,
                                   CajaOperationHandle**) {
    if (item.url != nullptr)
        show(file);
    return CAJA_OPERATION_COMPLETE;
}

void initializeInfoProvider(void* interface, void*) {
    static_cast<CajaInfoProviderIface*>(interface)->update_file_info = &updateFileInfo;
    static_cast<CajaInfoProviderIface*>(interface)->cancel_update = [](CajaInfoProvider*,
                                                                       CajaOperationHandle*) {};
}

void initializeMenuProvider(void* interface, void*) {
    static_cast<CajaMenuProviderIface*>(interface)->get_file_items =
        [](CajaMenuProvider*, GtkWidget*, GList*) -> GList* { return nullptr; };
}

GType provider = G_TYPE_INVALID;

} // namespace

extern "C" {

G_MODULE_EXPORT void caja_module_initialize(GTypeModule* module) {
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
    const GInterfaceInfo info = {&initializeInfoProvider, nullptr, nullptr};
    const GInterfaceInfo menu = {&initializeMenuProvider, nullptr, nullptr};
    provider =
        g_type_module_register_type(module, G_TYPE_OBJECT, "EmptyProvider", &type, GTypeFlags(0));
    g_type_module_add_interface(module, provider, CAJA_TYPE_INFO_PROVIDER, &info);
    g_type_module_add_interface(module, provider, CAJA_TYPE_MENU_PROVIDER, &menu);
    item.url = std::getenv("FINDER_SYNC_BENCH_BADGED");
    if (item.url != nullptr)
        (void)g_unix_signal_add(SIGUSR1, &toggle, nullptr);
}

G_MODULE_EXPORT void caja_module_shutdown() {}

G_MODULE_EXPORT void caja_module_list_types(const GType** types, int* count) {
    *types = &provider;
    *count = 1;
}

} // extern "C"

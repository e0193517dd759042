// empty-plugin: what the plug-in for Caja is compared with. It provides the same two interfaces and
// returns at once. With an emblem's name in BENCH_EMBLEM, SIGUSR1 puts that on all folders, or
// takes it away, by nothing but invalidating them.

#include <cstdlib>
#include <glib-unix.h>
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-info-provider.h>
#include <libcaja-extension/caja-menu-provider.h>
#include <set>

namespace {

const char* const emblem = std::getenv("BENCH_EMBLEM");
bool isShown = false;
std::set<CajaFileInfo*> folders; // none goes while it is measured

CajaOperationResult updateFileInfo(CajaInfoProvider*, CajaFileInfo* file, GClosure*,
                                   CajaOperationHandle**) {
    if (emblem != nullptr && caja_file_info_is_directory(file) != FALSE) {
        folders.insert(file);
        if (isShown)
            caja_file_info_add_emblem(file, emblem);
    }
    return CAJA_OPERATION_COMPLETE;
}

gboolean toggleEmblem(void*) {
    isShown = !isShown;
    for (CajaFileInfo* folder : folders)
        caja_file_info_invalidate_extension_info(folder);
    return G_SOURCE_CONTINUE;
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
    GTypeInfo type{};
    type.class_size = sizeof(GObjectClass);
    type.instance_size = sizeof(GObject);
    const GInterfaceInfo info = {&initializeInfoProvider, nullptr, nullptr};
    const GInterfaceInfo menu = {&initializeMenuProvider, nullptr, nullptr};
    provider =
        g_type_module_register_type(module, G_TYPE_OBJECT, "EmptyProvider", &type, GTypeFlags(0));
    g_type_module_add_interface(module, provider, CAJA_TYPE_INFO_PROVIDER, &info);
    g_type_module_add_interface(module, provider, CAJA_TYPE_MENU_PROVIDER, &menu);
    if (emblem != nullptr)
        g_unix_signal_add(SIGUSR1, &toggleEmblem, nullptr);
}

G_MODULE_EXPORT void caja_module_shutdown() {}

G_MODULE_EXPORT void caja_module_list_types(const GType** types, int* count) {
    *types = &provider;
    *count = 1;
}

} // extern "C"

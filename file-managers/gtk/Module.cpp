// The functions that the file manager looks up in a plug-in.

#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/Provider.h"

namespace {

/// The provider's type, once it is registered.
GType& provider() {
    static GType type = G_TYPE_INVALID;
    return type;
}

} // namespace

extern "C" {

G_MODULE_EXPORT void FM_CALL(module_initialize)(GTypeModule* module) {
    provider() = file_managers::registerProvider(module);
}

G_MODULE_EXPORT void FM_CALL(module_shutdown)() {}

G_MODULE_EXPORT void FM_CALL(module_list_types)(const GType** types, // NOLINT: its names differ
                                                int* count) {
    *types = &provider();
    *count = 1;
}

} // extern "C"

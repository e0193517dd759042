#pragma once

// Thunar's plug-in without Thunar and without a display: loaded as Thunar loads it, and asked for
// the menus of files of the program's own.

#include "tests/file-managers/LoadedPlugin.h"

#include <string>
#include <vector>

extern "C" { // some of its headers do not say that they are C
#include <thunarx/thunarx.h>
}

// A file as Thunar has it.

inline constexpr const char* urlKey = "url";

inline void initializeFileInfo(void* interface, void*) {
    static_cast<ThunarxFileInfoIface*>(interface)->get_uri = [](ThunarxFileInfo* file) {
        return g_strdup(static_cast<const char*>(g_object_get_data(G_OBJECT(file), urlKey)));
    };
}

inline file_managers::Object<GObject> fileAt(const char* url) {
    static const GType type = [] {
        const GInterfaceInfo info = {&initializeFileInfo, nullptr, nullptr};
        const GType made =
            g_type_register_static_simple(G_TYPE_OBJECT, "TestFile", sizeof(GObjectClass), nullptr,
                                          sizeof(GObject), nullptr, GTypeFlags(0));
        g_type_add_interface_static(made, THUNARX_TYPE_FILE_INFO, &info);
        return made;
    }();
    file_managers::Object<GObject> file(static_cast<GObject*>(g_object_new(type, nullptr)));
    g_object_set_data_full(file.get(), urlKey, g_strdup(url), &g_free);
    return file;
}

// The plug-in, loaded as Thunar does it.

inline bool isResident = false;

inline void initializeProviderPlugin(void* interface, void*) {
    auto* const plugin = static_cast<ThunarxProviderPluginIface*>(interface);
    plugin->set_resident = [](ThunarxProviderPlugin*, gboolean resident) {
        isResident = resident != FALSE;
    };
    plugin->register_type = [](ThunarxProviderPlugin* module, GType parent, const char* name,
                               const GTypeInfo* info, GTypeFlags flags) {
        return g_type_module_register_type(G_TYPE_MODULE(module), parent, name, info, flags);
    };
    plugin->add_interface = [](ThunarxProviderPlugin* module, GType type, GType added,
                               const GInterfaceInfo* info) {
        g_type_module_add_interface(G_TYPE_MODULE(module), type, added, info);
    };
}

/// The interface has a property for what its operations tell, too.
inline void initializePluginModuleClass(void* type, void*) {
    auto* const module = static_cast<GObjectClass*>(type);
    module->get_property = [](GObject*, guint, GValue* value, GParamSpec*) {
        g_value_set_boolean(value, gboolean(isResident));
    };
    module->set_property = [](GObject*, guint, const GValue* value, GParamSpec*) {
        isResident = g_value_get_boolean(value) != FALSE;
    };
    g_object_class_override_property(module, 1, "resident");
}

inline GType pluginModuleType() {
    const GInterfaceInfo info = {&initializeProviderPlugin, nullptr, nullptr};
    const GType type = g_type_register_static_simple(
        moduleType(), "TestPluginModule", sizeof(ModuleClass), &initializePluginModuleClass,
        sizeof(Module), nullptr, GTypeFlags(0));
    g_type_add_interface_static(type, THUNARX_TYPE_PROVIDER_PLUGIN, &info);
    return type;
}

inline GType providerType() {
    static const GType type = [] {
        GModule* const plugin = openPlugin();
        auto* const module = static_cast<GTypeModule*>(g_object_new(pluginModuleType(), nullptr));
        (void)g_type_module_use(module);
        symbol<void(ThunarxProviderPlugin*)>(plugin, "thunar_extension_initialize")(
            THUNARX_PROVIDER_PLUGIN(module));
        const GType* types = nullptr;
        int count = 0;
        symbol<void(const GType**, int*)>(plugin, "thunar_extension_list_types")(&types, &count);
        if (count != 1)
            throw std::runtime_error("the plug-in has not one type");
        return types[0];
    }();
    return type;
}

/// A menu for the files, of a provider that is made for it: Thunar does not keep one for long.
inline Menu menuOf(const std::vector<GObject*>& files) {
    const file_managers::Object<ThunarxMenuProvider> provider(
        static_cast<ThunarxMenuProvider*>(g_object_new(providerType(), nullptr)));
    return Menu(files, [&provider](GList* selection) {
        // Not by way of the library, which wants a window and so a display.
        return THUNARX_MENU_PROVIDER_GET_IFACE(provider.get())
            ->get_file_menu_items(provider.get(), nullptr, selection);
    });
}

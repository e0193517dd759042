#pragma once

// Thunar, as far as the plug-in can tell.

#include "tests/file-managers/GtkUnderTest.h"

extern "C" { // some of its headers do not say that they are C
#include <thunarx/thunarx.h>
}

class FileManager : public GtkFileManager {
public:
    static constexpr bool hasBadges = false; ///< of the items that a window shows
    static inline const Texts services = {"org.gtk.vfs.Daemon", "org.gtk.vfs.Metadata"};

private:
    static inline bool isResident = false;

    static void initializeProviderPlugin(void* interface, void*) {
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

    /// The interface demands a property for what its operations say as well.
    static void initializeModuleClass(void* type, void*) {
        auto* const module = static_cast<GObjectClass*>(type);
        module->get_property = [](GObject*, guint, GValue* value, GParamSpec*) {
            g_value_set_boolean(value, gboolean(isResident));
        };
        module->set_property = [](GObject*, guint, const GValue* value, GParamSpec*) {
            isResident = g_value_get_boolean(value) != FALSE;
        };
        g_object_class_override_property(module, 1, "resident");
    }

    static GType providerType() {
        static const GType provider = [] {
            const GInterfaceInfo info = {&initializeProviderPlugin, nullptr, nullptr};
            const GType module = g_type_register_static_simple(
                moduleType(), "TestThunarModule", sizeof(ModuleClass), &initializeModuleClass,
                sizeof(Module), nullptr, GTypeFlags(0));
            g_type_add_interface_static(module, THUNARX_TYPE_PROVIDER_PLUGIN, &info);
            const GType type = loadProviderType<ThunarxProviderPlugin>(module);
            if (!isResident)
                throw std::runtime_error("Thunar could unload the plug-in while it is in use");
            return type;
        }();
        return provider;
    }

    static void initializeFileInfo(void* interface, void*) {
        static_cast<ThunarxFileInfoIface*>(interface)->get_uri = [](ThunarxFileInfo* file) {
            return urlOf(file);
        };
    }

    Object<GObject> newFile(const char* url) override {
        return ::newFile(THUNARX_TYPE_FILE_INFO, &initializeFileInfo, url);
    }

    void update(GObject*) override {}

    /// Thunar drops a provider soon, so each menu gets one of its own.
    GList* newItems(GList* selection) override {
        const Object<ThunarxMenuProvider> provider(
            static_cast<ThunarxMenuProvider*>(g_object_new(providerType(), nullptr)));
        // Without a folder, it is the desktop's.
        const Object<GObject> window(static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr)));
        // Not through the library, which demands a widget and so a display.
        return THUNARX_MENU_PROVIDER_GET_IFACE(provider.get())
            ->get_file_menu_items(provider.get(), reinterpret_cast<GtkWidget*>(window.get()),
                                  selection);
    }

    const GType loaded_ = providerType();
};

// Thunar's plug-in without Thunar and without a display: it is loaded as Thunar loads it, and asked
// for the menus of files of the test's own.

#include "tests/file-managers/LoadedPlugin.h"

#include <memory>
#include <string>
#include <vector>

extern "C" { // some of its headers do not say that they are C
#include <thunarx/thunarx.h>
}

using namespace file_managers;

namespace {

// A file as Thunar has it.

constexpr const char* urlKey = "url";

void initializeFileInfo(void* interface, void*) {
    static_cast<ThunarxFileInfoIface*>(interface)->get_uri = [](ThunarxFileInfo* file) {
        return g_strdup(static_cast<const char*>(g_object_get_data(G_OBJECT(file), urlKey)));
    };
}

Object<GObject> fileAt(const char* url) {
    static const GType type = [] {
        const GInterfaceInfo info = {&initializeFileInfo, nullptr, nullptr};
        const GType made =
            g_type_register_static_simple(G_TYPE_OBJECT, "TestFile", sizeof(GObjectClass), nullptr,
                                          sizeof(GObject), nullptr, GTypeFlags(0));
        g_type_add_interface_static(made, THUNARX_TYPE_FILE_INFO, &info);
        return made;
    }();
    Object<GObject> file(static_cast<GObject*>(g_object_new(type, nullptr)));
    g_object_set_data_full(file.get(), urlKey, g_strdup(url), &g_free);
    return file;
}

// The plug-in, loaded as Thunar does it.

bool isResident = false;

void initializeProviderPlugin(void* interface, void*) {
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
void initializePluginModuleClass(void* type, void*) {
    auto* const module = static_cast<GObjectClass*>(type);
    module->get_property = [](GObject*, guint, GValue* value, GParamSpec*) {
        g_value_set_boolean(value, gboolean(isResident));
    };
    module->set_property = [](GObject*, guint, const GValue* value, GParamSpec*) {
        isResident = g_value_get_boolean(value) != FALSE;
    };
    g_object_class_override_property(module, 1, "resident");
}

GType pluginModuleType() {
    const GInterfaceInfo info = {&initializeProviderPlugin, nullptr, nullptr};
    const GType type = g_type_register_static_simple(
        moduleType(), "TestPluginModule", sizeof(ModuleClass), &initializePluginModuleClass,
        sizeof(Module), nullptr, GTypeFlags(0));
    g_type_add_interface_static(type, THUNARX_TYPE_PROVIDER_PLUGIN, &info);
    return type;
}

GType providerType() {
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

using Labels = std::vector<std::string>;

class ThunarPlugin : public testing::Test {
protected:
    /// A menu for the files, of a provider that is made for it: Thunar does not keep one for long.
    static Menu menu(const std::vector<GObject*>& files) {
        const Object<ThunarxMenuProvider> provider(
            static_cast<ThunarxMenuProvider*>(g_object_new(providerType(), nullptr)));
        return Menu(files, [&provider](GList* selection) {
            // Not by way of the library, which wants a window and so a display.
            return THUNARX_MENU_PROVIDER_GET_IFACE(provider.get())
                ->get_file_menu_items(provider.get(), nullptr, selection);
        });
    }

    [[nodiscard]] Menu menu() const { return menu({file_.get()}); }

    /// Whether the plug-in comes to know that the extension is there, or is not.
    [[nodiscard]] bool getsEntries() const {
        return runUntil([this] { return !menu().labels().empty(); });
    }

    const Object<GObject> file_ = fileAt("file:///sync");
};

const Labels entries = {"Copy __link & go"};
constexpr milliseconds atOnce(60);

TEST_F(ThunarPlugin, StaysInMemory) {
    (void)providerType();
    EXPECT_TRUE(isResident);
}

TEST_F(ThunarPlugin, OffersTheEntriesAndTellsWhatIsPicked) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(getsEntries());
    const auto first = fileAt("file:///sync/a%20b");
    const auto second = fileAt("file:///sync/c");
    const Menu opened = menu({first.get(), second.get()});
    EXPECT_EQ(opened.labels(), entries);
    EXPECT_EQ(opened.icons(), Labels{FINDER_SYNC_GROUP ".icon_URLlink"});
    opened.pickFirst();
    const std::string action = "action createLinkClicked: file:///sync/a%20b file:///sync/c\n";
    EXPECT_TRUE(runUntil([&] { return extension.said().find(action) != std::string::npos; }))
        << extension.said();
}

TEST_F(ThunarPlugin, WaitsForAMenuATenthOfASecondAtTheMost) {
    ExtensionProcess slow({"--delay", "90", "/sync"});
    ASSERT_TRUE(getsEntries());
    const Menu opened = menu();
    EXPECT_EQ(opened.labels(), entries) << "within the time";
    EXPECT_GE(opened.took(), milliseconds(90));
}

TEST_F(ThunarPlugin, GoesWithoutEntriesWhenTheExtensionIsSlow) {
    ExtensionProcess slow({"--delay", "1000", "/sync"});
    std::unique_ptr<const Menu> opened;
    ASSERT_TRUE(runUntil([&] {
        opened.reset(new Menu(menu()));
        return opened->took() > atOnce;
    })) << "it is asked";
    EXPECT_EQ(opened->labels(), Labels());
    EXPECT_GE(opened->took(), milliseconds(99));
    EXPECT_LT(opened->took(), milliseconds(500));
}

TEST_F(ThunarPlugin, LeavesAHungExtensionAloneForFiveSeconds) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(getsEntries());
    extension.signal(SIGSTOP);
    const auto begin = Clock::now();
    const Menu hung = menu();
    EXPECT_EQ(hung.labels(), Labels());
    EXPECT_GE(hung.took(), milliseconds(99));
    EXPECT_LT(hung.took(), milliseconds(500));
    const Menu next = menu();
    EXPECT_EQ(next.labels(), Labels());
    EXPECT_LT(next.took(), atOnce);
    extension.signal(SIGCONT);
    EXPECT_TRUE(getsEntries());
    EXPECT_GE(Clock::now() - begin, milliseconds(5000));
}

TEST_F(ThunarPlugin, OffersTheEntriesAgainWhenTheExtensionIsBack) {
    auto extension = std::make_unique<ExtensionProcess>(Labels{"/sync"});
    ASSERT_TRUE(getsEntries());
    extension->end();
    const Menu without = menu();
    EXPECT_EQ(without.labels(), Labels());
    EXPECT_LT(without.took(), atOnce);
    extension = std::make_unique<ExtensionProcess>(Labels{"/sync"});
    EXPECT_TRUE(getsEntries());
}

// Played by tests/faults, too, while calls fail, so no entry is demanded.
TEST_F(ThunarPlugin, OutlivesASessionAndKeepsNoFile) {
    ExtensionProcess extension({"/sync"});
    const auto file = fileAt("file:///sync/a%20b");
    const auto end = Clock::now() + milliseconds(300);
    (void)runUntil([&] {
        const Menu opened = menu({file.get()});
        EXPECT_LT(opened.took(), milliseconds(500));
        if (opened.labels().empty())
            return Clock::now() > end;
        opened.pickFirst();
        return true;
    });
    runFor(milliseconds(50));
    extension.end();
    runFor(milliseconds(50));
    EXPECT_EQ(menu({file.get()}).labels(), Labels());
    EXPECT_EQ(file->ref_count, 1U);
}

TEST_F(ThunarPlugin, WithoutAnExtensionThereIsNothingToWaitFor) {
    runFor(milliseconds(50));
    const Menu opened = menu();
    EXPECT_EQ(opened.labels(), Labels());
    EXPECT_LT(opened.took(), atOnce);
}

} // namespace

int main(int argc, char** argv) {
    return runTestsOnBus(argc, argv);
}

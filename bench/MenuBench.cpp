// menu-bench: how long the plug-in for Caja keeps its file manager waiting for a menu, beside a
// bare round trip to an empty service through the same library.

#include "bench/BusAnswers.h"
#include "bench/BusCaller.h"
#include "bench/LogSink.h"
#include "bench/Loopback.h"
#include "bench/OneCore.h"
#include "bench/Report.h"
#include "bench/Session.h"

#include <chrono>
#include <cstdio>
#include <gio/gio.h>
#include <gmodule.h>
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-menu-provider.h>
#include <memory>
#include <stdexcept>
#include <unistd.h>

namespace findersync::bench {

namespace {

constexpr const char* extensionName = FINDER_SYNC_GROUP ".FinderSync";
constexpr const char* emptyServiceName = FINDER_SYNC_GROUP ".EmptyService";
constexpr const char* rootFolder = "/home/anna/Documents/Customers";
constexpr const char* itemURL = "file:///home/anna/Documents/Customers/Quarterly%20reports/2026";

/// The selected file, as far as a menu provider asks for it.
GType fileType() {
    static const GType type = [] {
        const GType made =
            g_type_register_static_simple(G_TYPE_OBJECT, "BenchFile", sizeof(GObjectClass), nullptr,
                                          sizeof(GObject), nullptr, GTypeFlags(0));
        const GInterfaceInfo info = {[](void* interface, void*) {
                                         static_cast<CajaFileInfoIface*>(interface)->get_uri =
                                             [](CajaFileInfo*) { return g_strdup(itemURL); };
                                     },
                                     nullptr, nullptr};
        g_type_add_interface_static(made, CAJA_TYPE_FILE_INFO, &info);
        return made;
    }();
    return type;
}

GTypeModule* newModule() {
    const auto initialize = [](void* type, void*) {
        static_cast<GTypeModuleClass*>(type)->load = [](GTypeModule*) -> gboolean { return TRUE; };
        static_cast<GTypeModuleClass*>(type)->unload = [](GTypeModule*) {};
    };
    const GType type =
        g_type_register_static_simple(G_TYPE_TYPE_MODULE, "BenchModule", sizeof(GTypeModuleClass),
                                      initialize, sizeof(GTypeModule), nullptr, GTypeFlags(0));
    auto* const module = static_cast<GTypeModule*>(g_object_new(type, nullptr));
    (void)g_type_module_use(module);
    return module;
}

template <typename Function> Function* symbol(GModule* plugin, const char* name) {
    void* found = nullptr;
    if (g_module_symbol(plugin, name, &found) == FALSE)
        throw std::runtime_error(g_module_error());
    return reinterpret_cast<Function*>(found);
}

/// The plug-in's menu provider, loaded as Caja loads it.
CajaMenuProvider* loadProvider(const std::string& file) {
    GModule* const plugin = g_module_open(file.c_str(), G_MODULE_BIND_LOCAL);
    if (plugin == nullptr)
        throw std::runtime_error(g_module_error());
    symbol<void(GTypeModule*)>(plugin, "caja_module_initialize")(newModule());
    const GType* types = nullptr;
    int count = 0;
    symbol<void(const GType**, int*)>(plugin, "caja_module_list_types")(&types, &count);
    return static_cast<CajaMenuProvider*>(g_object_new(types[0], nullptr));
}

class MenuAsker {
public:
    explicit MenuAsker(const Session& session)
        : provider_(
              loadProvider(session.benchFile("../lib/caja/extensions-2.0/libfinder-sync-caja.so"))),
          selection_(g_list_append(nullptr, g_object_new(fileType(), nullptr))),
          bus_(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)) {
        if (bus_ == nullptr)
            throw std::runtime_error("no session bus");
    }

    /// Gives the number of entries.
    [[nodiscard]] guint askPlugin() const {
        GList* const items = caja_menu_provider_get_file_items(provider_, nullptr, selection_);
        const guint count = g_list_length(items);
        g_list_free_full(items, &g_object_unref);
        return count;
    }
    /// The same call by the same library, and nothing else.
    [[nodiscard]] guint askEmptyService() const {
        const char* const urls[] = {itemURL, nullptr};
        GVariant* const answer = g_dbus_connection_call_sync(
            bus_, emptyServiceName, "/FinderSync", "findersync.Extension1", "MenuForMenuKind",
            g_variant_new("(u^as)", 0U, urls), G_VARIANT_TYPE("(ba(sss))"),
            G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr);
        if (answer == nullptr)
            throw std::runtime_error("the empty service does not answer");
        GVariant* const items = g_variant_get_child_value(answer, 1);
        const auto count = static_cast<guint>(g_variant_n_children(items));
        g_variant_unref(items);
        g_variant_unref(answer);
        return count;
    }

private:
    // For as long as the process.
    CajaMenuProvider* provider_;
    GList* selection_;
    GDBusConnection* bus_;
};

void waitForMenu(const MenuAsker& asker) {
    const gint64 limit = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
    while (asker.askPlugin() != menuEntries.size()) {
        if (g_get_monotonic_time() > limit)
            throw std::runtime_error("the plug-in offers no menu");
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
        g_usleep(1000);
    }
}

/// Microseconds that a call takes which gives the number of entries.
template <typename Call> double measure(const Call& call) {
    const auto begin = std::chrono::steady_clock::now();
    const guint entries = call();
    const auto end = std::chrono::steady_clock::now();
    if (entries != menuEntries.size())
        throw std::runtime_error("a menu has another number of entries than expected");
    return std::chrono::duration<double, std::micro>(end - begin).count();
}

int run(const Session& session) {
    const OneCore daemon(BusCaller().daemon());
    const OneCore everythingElse(::getpid());
    const LogSink log;
    const LoopbackListener listener;
    const ChildProcess extension(session.extension(listener.port()),
                                 {.output = log.descriptor(), .error = log.descriptor()},
                                 {"JOURNAL_STREAM=" + log.journalStream()});
    const FileDescriptor companion = listener.accept();
    auto command = session.benchProgram("empty-service", listener.port());
    command.emplace_back(badgeIdentifier);
    const ChildProcess emptyService(command, {.output = log.descriptor()});
    const FileDescriptor connection = listener.accept();

    const BusCaller caller;
    caller.setProperty(extensionName, "pathsOfRootFolders", std::vector<std::string>{rootFolder});
    caller.setProperty(extensionName, "shareViaUrlTitle", menuEntries[0].title);
    caller.setProperty(extensionName, "backupTitle", menuEntries[1].title);
    caller.setProperty(extensionName, "displayBackup", std::int64_t{1});
    const MenuAsker asker(session);
    waitForMenu(asker);

    std::vector<double> plugin;
    std::vector<double> sameLibrary;
    std::vector<double> bare;
    for (int left = session.isQuick() ? 50 : 3'000; left > 0; --left) {
        bare.push_back(measure(
            [&] { return static_cast<guint>(caller.menu(emptyServiceName, itemURL).size() / 3); }));
        plugin.push_back(measure([&] { return asker.askPlugin(); }));
        sameLibrary.push_back(measure([&] { return asker.askEmptyService(); }));
    }
    (void)std::fprintf(stderr,
                       "menu in the file manager: empty service by sd-bus %.0f us, by GDBus %.0f "
                       "us; plug-in %.0f us\n",
                       median(bare), median(sameLibrary), median(plugin));
    return report({{.what = "Caja, a menu of two entries, beside GDBus",
                    .measured = median(plugin) / median(sameLibrary)},
                   {.what = "Caja, a menu of two entries, beside sd-bus",
                    .measured = median(plugin) / median(bare)}},
                  !session.isQuick());
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 120);
}

// An extension on the bus that follows its command line:
//     scripted-extension [--delay MILLISECONDS] ROOT… [--then ROOT…]
// Menus take the delay, and SIGUSR1 replaces the root folders by those after --then. It writes a
// line for each request: "badges COUNT", "menu URL…", "action SELECTOR URL…".

#include "Names.h"
#include "file-managers/gtk/Handles.h"
#include "finder-sync-extension1.h"

#include <cstdio>
#include <cstdlib>
#include <glib-unix.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Script {
    unsigned delay = 0; // milliseconds
    std::vector<const char*> roots;
    std::vector<const char*> laterRoots;
};

Script script;

bool isRoot(FinderSyncExtension1* extension, const char* url) {
    const file_managers::Text path(g_filename_from_uri(url, nullptr, nullptr));
    const char* const* const roots = finder_sync_extension1_get_paths_of_root_folders(extension);
    return path && g_strv_contains(roots, path.get()) != FALSE;
}

void say(const char* what, const char* const* texts) {
    std::printf("%s", what);
    for (; *texts != nullptr; ++texts)
        std::printf(" %s", *texts);
    std::printf("\n");
    std::fflush(stdout);
}

gboolean answerBadges(FinderSyncExtension1* extension, GDBusMethodInvocation* call,
                      const char* const* urls, void*) {
    std::vector<const char*> badges;
    for (const char* const* url = urls; *url != nullptr; ++url)
        badges.push_back(isRoot(extension, *url) ? "FolderIco" : "");
    say("badges", std::vector<const char*>{std::to_string(badges.size()).c_str(), nullptr}.data());
    badges.push_back(nullptr);
    finder_sync_extension1_complete_request_badge_identifiers_for_urls(extension, call,
                                                                       badges.data());
    return TRUE;
}

gboolean answerMenu(FinderSyncExtension1* extension, GDBusMethodInvocation* call, unsigned,
                    const char* const* urls, void*) {
    g_usleep(gulong{1000} * script.delay);
    say("menu", urls);
    GVariantBuilder items;
    g_variant_builder_init(&items, G_VARIANT_TYPE("a(sss)"));
    g_variant_builder_add(&items, "(sss)", "Copy _link & go", "createLinkClicked:", "icon_URLlink");
    finder_sync_extension1_complete_menu_for_menu_kind(extension, call, TRUE,
                                                       g_variant_builder_end(&items));
    return TRUE;
}

gboolean answerAction(FinderSyncExtension1* extension, GDBusMethodInvocation* call,
                      const char* selector, const char* const* urls, void*) {
    say(("action " + std::string(selector)).c_str(), urls);
    finder_sync_extension1_complete_perform_action(extension, call);
    return TRUE;
}

void publish(GDBusConnection* bus, const char*, void*) {
    FinderSyncExtension1* const extension = finder_sync_extension1_skeleton_new();
    const char* const everything[] = {"file:///", nullptr};
    finder_sync_extension1_set_directory_urls(extension, everything);
    finder_sync_extension1_set_paths_of_root_folders(extension, script.roots.data());
    const auto useLaterRoots = [](void* published) -> gboolean {
        finder_sync_extension1_set_paths_of_root_folders(
            static_cast<FinderSyncExtension1*>(published), script.laterRoots.data());
        return G_SOURCE_CONTINUE;
    };
    (void)g_unix_signal_add(SIGUSR1, useLaterRoots, extension);
    g_signal_connect(extension, "handle-request-badge-identifiers-for-urls",
                     G_CALLBACK(&answerBadges), nullptr);
    g_signal_connect(extension, "handle-menu-for-menu-kind", G_CALLBACK(&answerMenu), nullptr);
    g_signal_connect(extension, "handle-perform-action", G_CALLBACK(&answerAction), nullptr);
    (void)g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(extension), bus,
                                           findersync::objectPath, nullptr);
}

} // namespace

int main(int argc, char** argv) {
    auto* roots = &script.roots;
    for (int index = 1; index < argc; ++index) {
        if (std::string_view(argv[index]) == "--delay" && index + 1 < argc)
            script.delay = static_cast<unsigned>(std::atoi(argv[++index]));
        else if (std::string_view(argv[index]) == "--then")
            roots = &script.laterRoots;
        else
            roots->push_back(argv[index]);
    }
    script.roots.push_back(nullptr);
    script.laterRoots.push_back(nullptr);
    const auto lost = [](GDBusConnection*, const char*, void*) { std::exit(0); };
    (void)g_bus_own_name(G_BUS_TYPE_SESSION, findersync::busName, G_BUS_NAME_OWNER_FLAGS_NONE,
                         &publish, nullptr, lost, nullptr, nullptr);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

// An extension on the bus that follows its command line:
//     scripted-extension [OPTION…] ROOT… [--then ROOT…]
//     --name NAME           another bus name than the build's; several, several names
//     --directory URL       another watched directory than "file:///"; several, several directories
//     --title TITLE         another title than "Copy _link & go"
//     --delay MILLISECONDS  what menus take
//     --nonsense            menus have 1,000 entries, and badges come in lists of another length
//     --without-interface   the names have a process, but nothing to offer
//     --refuse URL          requests for badges fail that hold this item
//     --once                ends after an action
//     --any                 signals no names of changed root folders, so that it may be any
//     --without-paths       their paths cannot be had
// SIGUSR1 replaces the root folders by those after --then, SIGUSR2 restores them; both end the
// nonsense. It writes a line for each request: "get PROPERTY", "badges COUNT", "menu URL…", "action
// SELECTOR URL…"; without the interface, "call".

#include "Names.h"
#include "file-managers/gtk/Handles.h"
#include "finder-sync-extension1.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <glib-unix.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Script {
    std::vector<const char*> names;
    std::vector<const char*> directories;
    const char* title = "Copy _link & go";
    unsigned delay = 0; // milliseconds
    bool isNonsense = false;
    bool hasInterface = true;
    std::string_view refused;
    bool endsAfterAction = false;
    bool namesNoChanges = false;
    bool hasPaths = true;
    std::vector<const char*> roots;
    std::vector<const char*> laterRoots;
};

Script script;

bool isRoot(FinderSyncExtension1* extension, const char* url) {
    const file_managers::Text path(g_filename_from_uri(url, nullptr, nullptr));
    const char* const* const roots = finder_sync_extension1_get_paths_of_root_folders(extension);
    return path && g_strv_contains(roots, path.get()) != FALSE;
}

const char* const none[] = {nullptr};

/// One line. Two threads write.
void say(const char* what, const char* const* texts) {
    std::string line = what;
    for (; *texts != nullptr; ++texts)
        line.append(1, ' ').append(*texts);
    std::puts(line.c_str());
    std::fflush(stdout);
}

gboolean answerBadges(FinderSyncExtension1* extension, GDBusMethodInvocation* call,
                      const char* const* urls, void*) {
    std::vector<const char*> badges;
    for (const char* const* url = urls; *url != nullptr; ++url)
        badges.push_back(isRoot(extension, *url) ? "FolderIco" : "");
    say(("badges " + std::to_string(badges.size())).c_str(), none);
    if (std::ranges::find(urls, urls + badges.size(), script.refused) != urls + badges.size()) {
        g_dbus_method_invocation_return_dbus_error(call,
                                                   "org.freedesktop.DBus.Error.LimitsExceeded", "");
        return TRUE;
    }
    if (!script.isNonsense)
        badges.push_back("");
    badges.back() = nullptr;
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
    for (int entries = script.isNonsense ? 1000 : 1; entries > 0; --entries)
        g_variant_builder_add(&items, "(sss)", script.title, "createLinkClicked:", "icon_URLlink");
    finder_sync_extension1_complete_menu_for_menu_kind(extension, call, TRUE,
                                                       g_variant_builder_end(&items));
    return TRUE;
}

gboolean answerAction(FinderSyncExtension1* extension, GDBusMethodInvocation* call,
                      const char* selector, const char* const* urls, void*) {
    say(("action " + std::string(selector)).c_str(), urls);
    finder_sync_extension1_complete_perform_action(extension, call);
    if (script.endsAfterAction) {
        auto* const skeleton = G_DBUS_INTERFACE_SKELETON(extension);
        (void)g_dbus_connection_flush_sync(g_dbus_interface_skeleton_get_connection(skeleton),
                                           nullptr, nullptr);
        std::exit(0);
    }
    return TRUE;
}

GDBusMessage* withBody(GDBusMessage* message, GVariant* body) {
    GDBusMessage* const copy = g_dbus_message_copy(message, nullptr);
    g_object_unref(message);
    g_dbus_message_set_body(copy, body);
    return copy;
}

/// Sees each message first, in the bus's thread.
GDBusMessage* sayCall(GDBusConnection*, GDBusMessage* message, gboolean isIncoming, void*) {
    if (isIncoming == FALSE ||
        g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
        return message;
    if (!script.hasInterface) {
        say("call", none);
    } else if (std::string_view("Get") == g_dbus_message_get_member(message)) {
        const char* property = nullptr;
        g_variant_get(g_dbus_message_get_body(message), "(&s&s)", nullptr, &property);
        say((std::string("get ") + property).c_str(), none);
        if (!script.hasPaths && std::string_view("pathsOfRootFolders") == property)
            return withBody(message, g_variant_new("(ss)", findersync::interfaceName, "none"));
    }
    return message;
}

/// Changed root folders are signalled without their value, which GDBus would send. In the bus's
/// thread.
GDBusMessage* withoutValue(GDBusConnection*, GDBusMessage* message, gboolean isIncoming, void*) {
    if (isIncoming != FALSE ||
        g_strcmp0(g_dbus_message_get_member(message), "PropertiesChanged") != 0)
        return message;
    return withBody(message, g_variant_new_parsed("(%s, @a{sv} {}, ['pathsOfRootFolders'])",
                                                  findersync::interfaceName));
}

/// The last components of the paths that are in one list alone; null at the end.
std::vector<const char*> changedNames() {
    std::vector<const char*> names;
    const auto add = [&](const auto& roots, const auto& others) {
        for (std::size_t index = 0; !script.namesNoChanges && roots[index] != nullptr; ++index) {
            if (g_strv_contains(others.data(), roots[index]) == FALSE) {
                const char* const slash = std::strrchr(roots[index], '/');
                names.push_back(slash != nullptr ? slash + 1 : roots[index]);
            }
        }
    };
    add(script.roots, script.laterRoots);
    add(script.laterRoots, script.roots);
    names.push_back(nullptr);
    return names;
}

template <auto roots> gboolean use(void* object) {
    auto* const extension = static_cast<FinderSyncExtension1*>(object);
    script.isNonsense = false;
    finder_sync_extension1_set_paths_of_root_folders(extension, (script.*roots).data());
    finder_sync_extension1_emit_root_folders_changed(extension, changedNames().data());
    return G_SOURCE_CONTINUE;
}

void publish(GDBusConnection* bus) {
    (void)g_dbus_connection_add_filter(bus, &sayCall, nullptr, nullptr);
    (void)g_dbus_connection_add_filter(bus, &withoutValue, nullptr, nullptr);
    if (!script.hasInterface)
        return;
    FinderSyncExtension1* const extension = finder_sync_extension1_skeleton_new();
    finder_sync_extension1_set_directory_urls(extension, script.directories.data());
    finder_sync_extension1_set_paths_of_root_folders(extension, script.roots.data());
    (void)g_unix_signal_add(SIGUSR1, &use<&Script::laterRoots>, extension);
    (void)g_unix_signal_add(SIGUSR2, &use<&Script::roots>, extension);
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
        const std::string_view word = argv[index];
        if (word == "--name")
            script.names.push_back(argv[++index]);
        else if (word == "--directory")
            script.directories.push_back(argv[++index]);
        else if (word == "--title")
            script.title = argv[++index];
        else if (word == "--delay")
            script.delay = static_cast<unsigned>(std::atoi(argv[++index]));
        else if (word == "--nonsense")
            script.isNonsense = true;
        else if (word == "--without-interface")
            script.hasInterface = false;
        else if (word == "--refuse")
            script.refused = argv[++index];
        else if (word == "--once")
            script.endsAfterAction = true;
        else if (word == "--any")
            script.namesNoChanges = true;
        else if (word == "--without-paths")
            script.hasPaths = false;
        else if (word == "--then")
            roots = &script.laterRoots;
        else
            roots->push_back(argv[index]);
    }
    if (script.names.empty())
        script.names.push_back(findersync::busName);
    if (script.directories.empty())
        script.directories.push_back("file:///");
    for (auto* texts : {&script.directories, &script.roots, &script.laterRoots})
        texts->push_back(nullptr);
    GDBusConnection* const bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (bus == nullptr)
        return 1;
    publish(bus);
    const auto lost = [](GDBusConnection*, const char*, void*) { std::exit(0); };
    for (const char* name : script.names)
        (void)g_bus_own_name_on_connection(bus, name, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, lost,
                                           nullptr, nullptr);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

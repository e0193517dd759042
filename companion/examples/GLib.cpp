// A companion application in the event loop of GLib: GROUP FOLDER...

#include "finder_sync_companion/Server.h"

#include <glib-unix.h>
#include <iostream>

using namespace finder_sync;

int main(int argc, char** argv) {
    Companion companion;
    for (const Refusal& refusal : companion.setFolders({argv + 2, argv + argc}))
        std::cerr << refusal.message() << '\n';
    companion.setTitles({"", "Copy link", "Back up"});
    companion.setBackup(true);

    Server server(companion, {.onReport = [](const Report& report) {
                      for (const std::string& path : report.paths)
                          std::cout << (report.type == ReportType::Backup ? "backup " : "link ")
                                    << path << std::endl;
                  }});
    std::string failure;
    if (!server.listen(0, failure) || !server.writeSettings(argv[1], "/", failure) ||
        !server.restartExtension(argv[1], failure)) {
        std::cerr << failure << '\n';
        return 1;
    }

    const auto dispatch = [](int, GIOCondition, void* object) -> gboolean {
        static_cast<Server*>(object)->dispatch();
        return G_SOURCE_CONTINUE;
    };
    g_unix_fd_add(server.descriptor(), G_IO_IN, dispatch, &server);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

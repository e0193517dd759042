// A companion application in the event loop of sd-event: GROUP FOLDER...

#include "finder_sync_companion/Server.h"

#include <iostream>
#include <sys/epoll.h>
#include <systemd/sd-event.h>

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

    sd_event* loop = nullptr;
    sd_event_default(&loop);
    const auto dispatch = [](sd_event_source*, int, std::uint32_t, void* object) {
        static_cast<Server*>(object)->dispatch();
        return 0;
    };
    sd_event_add_io(loop, nullptr, server.descriptor(), EPOLLIN, dispatch, &server);
    return sd_event_loop(loop);
}

// A companion application in the event loop of Qt: GROUP FOLDER...

#include "finder_sync_companion/Server.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <iostream>

using namespace finder_sync;

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
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

    const QSocketNotifier notifier(server.descriptor(), QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, [&server] { server.dispatch(); });
    return QCoreApplication::exec();
}

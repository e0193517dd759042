// Dolphin as far as its plug-ins can tell, without windows. It takes the orders of HeadlessGtk.cpp.

#include "tests/file-managers/AheadOfOthers.h"
#include "tests/file-managers/LoadedDolphinPlugins.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QIcon>
#include <QSocketNotifier>
#include <QTimer>
#include <algorithm>
#include <iostream>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

class FileManager {
public:
    FileManager() {
        QObject::connect(&input_, &QSocketNotifier::activated, [this] { obeyNext(); });
        QObject::connect(&ticks_, &QTimer::timeout, [this] { tick(); });
        ticks_.setTimerType(Qt::PreciseTimer);
        ticks_.start(1);
        clock_.start();
    }

private:
    /// One order at a time is on its way.
    void obeyNext() {
        std::string line;
        if (!std::getline(std::cin, line)) {
            QCoreApplication::quit();
            return;
        }
        const auto space = std::min(line.find(' '), line.size());
        const QUrl url(QString::fromStdString(line.substr(std::min(space + 1, line.size()))));
        std::cout << obey(line.substr(0, space), url) << std::endl;
    }

    std::string obey(const std::string& order, const QUrl& url) {
        if (order == "show")
            plugins_.show(url);
        else if (order == "badge")
            return order + (plugins_.overlays(url).isEmpty() ? " 0" : " 1");
        else if (order == "menu")
            return menu(url);
        else if (order == "pick")
            plugins_.actions().front()->trigger();
        else if (order == "away")
            return order + " " + std::to_string(std::exchange(longestAway_, 0) / 1000);
        return order;
    }

    std::string menu(const QUrl& url) {
        const QStringList labels = plugins_.menu({url});
        std::string line = "menu " + std::to_string(plugins_.menuTookMicroseconds());
        for (const QString& label : labels) {
            std::string text = label.toStdString();
            std::replace_if(
                text.begin(), text.end(), [](unsigned char byte) { return byte < ' '; }, '?');
            line += "\t" + text;
        }
        return line;
    }

    void tick() { longestAway_ = std::max(longestAway_, clock_.nsecsElapsed()), clock_.start(); }

    QSocketNotifier input_{STDIN_FILENO, QSocketNotifier::Read};
    QTimer ticks_;
    QElapsedTimer clock_;
    qint64 longestAway_ = 0; ///< nanoseconds
    LoadedDolphinPlugins plugins_;
};

} // namespace

int main(int argc, char** argv) {
    runAheadOfOthers();
    qputenv("QT_QPA_PLATFORM", "minimal");
    qputenv("QT_PLUGIN_PATH", FINDER_SYNC_PLUGINS);
    const QApplication application(argc, argv);
    QIcon::setThemeSearchPaths({QStringLiteral(FINDER_SYNC_ICONS)});
    QIcon::setThemeName(QStringLiteral("hicolor"));
    const FileManager fileManager;
    return QApplication::exec();
}

// A file manager as far as its plug-in can tell, without windows. It takes one order on each line
// of standard input and answers it with one line:
//     show URL     shows an item
//     badge URL    whether an item that is shown has its badge: "badge 0" or "badge 1"
//     menu URL     opens a menu: "menu MICROSECONDS LABEL…", with tabs in between
//     pick         picks the first entry of that menu

#include "tests/file-managers/FileManagerUnderTest.h"

#include <algorithm>
#include <iostream>

namespace {

class Headless {
public:
    void run() {
        manager_.run([this] { obeyNext(); });
    }

private:
    /// Another order comes only when this one is answered.
    void obeyNext() {
        std::string line;
        if (!std::getline(std::cin, line)) {
            manager_.quit();
            return;
        }
        const auto space = std::min(line.find(' '), line.size());
        std::cout << obey(line.substr(0, space), line.substr(std::min(space + 1, line.size())))
                  << std::endl;
    }

    std::string obey(const std::string& order, const std::string& url) {
        if (order == "show")
            manager_.show(url);
        else if (order == "badge")
            return order + (manager_.badges(url) == Texts{FileManager::badge} ? " 1" : " 0");
        else if (order == "menu")
            return menu(url);
        else if (order == "pick")
            manager_.pickFirst();
        return order;
    }

    std::string menu(const std::string& url) {
        manager_.forget(url); // each menu is for an item that has just been shown
        const Texts labels = manager_.menu({url});
        std::string line = "menu " + std::to_string(manager_.menuTook().count());
        for (std::string label : labels) {
            const auto isControl = [](unsigned char byte) { return byte < ' '; };
            std::ranges::replace_if(label, isControl, '?');
            line += "\t" + label;
        }
        return line;
    }

    FileManager manager_;
};

} // namespace

int main(int argc, char** argv) {
    runAheadOfOthers();
    const Application application(argc, argv);
    Headless().run();
}

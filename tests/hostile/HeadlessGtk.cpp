// Caja, Nemo, GNOME Files or Thunar as far as their plug-in can tell, without windows: a main loop
// that takes one order on each line of standard input and answers it with one line.
//     show URL     shows an item
//     badge URL    whether an item that is shown has its badge: "badge 0" or "badge 1"
//     menu URL     opens a menu: "menu MICROSECONDS LABEL…", with tabs in between
//     pick         picks the first entry of that menu
//     away         for how long the main loop has been away at the most, since it was asked last:
//                  "away MICROSECONDS"

#if defined(FINDER_SYNC_THUNAR)
#include "tests/file-managers/LoadedThunarPlugin.h"
#else
#include "tests/file-managers/LoadedProvider.h"
#endif

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <string>

using namespace file_managers;

namespace {

#if defined(FINDER_SYNC_THUNAR)

/// What the plug-in is told of.
class Window {
public:
    Window() { (void)providerType(); }
    void show(const std::string&) {}
    bool isBadged(const std::string&) { return false; } // it has no way to show one
    std::unique_ptr<Menu> menu(const std::string& url) {
        const Object<GObject> file = fileAt(url.c_str());
        return std::unique_ptr<Menu>(new Menu(menuOf({file.get()})));
    }
};

#else

/// What the plug-in is told of.
class Window {
public:
    void show(const std::string& url) { (void)file(url); }
    bool isBadged(const std::string& url) {
        File* const shown = file(url);
        provider_.showAnew(shown);
        return shown->emblems->contains(LoadedProvider::emblem);
    }
    std::unique_ptr<Menu> menu(const std::string& url) {
        const auto file = provider_.shown(url);
        return std::unique_ptr<Menu>(new Menu(provider_.menu({file.get()})));
    }

private:
    File* file(const std::string& url) {
        auto& file = files_[url];
        if (!file)
            file = provider_.shown(url);
        return file.get();
    }

    LoadedProvider provider_;
    std::map<std::string, Object<File>> files_;
};

#endif

class FileManager {
public:
    void run() {
        const auto read = [](GIOChannel*, GIOCondition, void* self) -> gboolean {
            return static_cast<FileManager*>(self)->obeyNext() ? G_SOURCE_CONTINUE
                                                               : G_SOURCE_REMOVE;
        };
        const auto tick = [](void* self) -> gboolean {
            static_cast<FileManager*>(self)->tick();
            return G_SOURCE_CONTINUE;
        };
        GIOChannel* const input = g_io_channel_unix_new(STDIN_FILENO);
        g_io_add_watch(input, GIOCondition(G_IO_IN | G_IO_HUP), read, this);
        g_timeout_add(1, tick, this);
        g_main_loop_run(loop_);
        g_io_channel_unref(input);
        g_main_loop_unref(loop_);
    }

private:
    /// One order at a time is on its way.
    bool obeyNext() {
        std::string line;
        if (!std::getline(std::cin, line)) {
            g_main_loop_quit(loop_);
            return false;
        }
        const auto space = std::min(line.find(' '), line.size());
        std::cout << obey(line.substr(0, space), line.substr(std::min(space + 1, line.size())))
                  << std::endl;
        return true;
    }

    std::string obey(const std::string& order, const std::string& url) {
        if (order == "show")
            window_.show(url);
        else if (order == "badge")
            return order + (window_.isBadged(url) ? " 1" : " 0");
        else if (order == "menu")
            return menu(url);
        else if (order == "pick")
            menu_->pickFirst();
        else if (order == "away")
            return order + " " + std::to_string(std::exchange(longestAway_, 0));
        return order;
    }

    std::string menu(const std::string& url) {
        menu_ = window_.menu(url);
        std::string line = "menu " + std::to_string(menu_->took().count());
        for (std::string label : menu_->labels()) {
            std::replace_if(
                label.begin(), label.end(), [](unsigned char byte) { return byte < ' '; }, '?');
            line += "\t" + label;
        }
        return line;
    }

    void tick() {
        const gint64 now = g_get_monotonic_time();
        longestAway_ = std::max(longestAway_, now - std::exchange(lastTick_, now));
    }

    GMainLoop* const loop_ = g_main_loop_new(nullptr, FALSE);
    Window window_;
    std::unique_ptr<Menu> menu_;
    gint64 lastTick_ = g_get_monotonic_time();
    gint64 longestAway_ = 0;
};

} // namespace

int main() {
    runAheadOfOthers();
    FileManager().run();
}

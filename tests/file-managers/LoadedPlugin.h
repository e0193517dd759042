#pragma once

// What the tests of all plug-ins share: the plug-in as a file manager loads it, its menus, and the
// scripted extension's process.

#include "file-managers/gtk/Handles.h"
#include "tests/file-managers/AheadOfOthers.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gmodule.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

struct Module {
    GTypeModule parent;
};

struct ModuleClass {
    GTypeModuleClass parent;
};

/// Of the module that a plug-in registers its types for.
inline GType moduleType() {
    static const GType registered = [] {
        const auto initialize = [](void* type, void*) {
            static_cast<GTypeModuleClass*>(type)->load = [](GTypeModule*) -> gboolean { return 1; };
            static_cast<GTypeModuleClass*>(type)->unload = [](GTypeModule*) {};
        };
        return g_type_register_static_simple(G_TYPE_TYPE_MODULE, "TestModule", sizeof(ModuleClass),
                                             initialize, sizeof(Module), nullptr, GTypeFlags(0));
    }();
    return registered;
}

inline GModule* openPlugin() {
    GModule* const plugin = g_module_open(FINDER_SYNC_PLUGIN, G_MODULE_BIND_LOCAL);
    if (plugin == nullptr)
        throw std::runtime_error(g_module_error());
    return plugin;
}

template <typename Function> Function* symbol(GModule* plugin, const std::string& name) {
    void* found = nullptr;
    if (g_module_symbol(plugin, name.c_str(), &found) == FALSE)
        throw std::runtime_error("the plug-in has no " + name);
    return reinterpret_cast<Function*>(found);
}

/// The scripted extension's process. What it says is read line by line.
class ExtensionProcess {
public:
    explicit ExtensionProcess(std::vector<std::string> arguments) {
        std::string program = FINDER_SYNC_SCRIPTED_EXTENSION;
        std::vector<char*> words = {program.data()};
        for (std::string& argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        GError* error = nullptr;
        if (g_spawn_async_with_pipes(nullptr, words.data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD,
                                     nullptr, nullptr, &process_, nullptr, &output_, nullptr,
                                     &error) == FALSE)
            throw std::runtime_error(error->message);
        (void)::fcntl(output_, F_SETFL, O_NONBLOCK);
    }
    ~ExtensionProcess() {
        end();
        (void)::close(output_);
    }
    ExtensionProcess(const ExtensionProcess&) = delete;
    ExtensionProcess& operator=(const ExtensionProcess&) = delete;

    void signal(int number) const { (void)::kill(process_, number); }

    void end() {
        if (process_ == 0)
            return;
        signal(SIGKILL);
        (void)::waitpid(std::exchange(process_, 0), nullptr, 0);
    }

    /// Everything that it has said so far.
    const std::string& said() {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = ::read(output_, buffer, sizeof buffer)) > 0)
            said_.append(buffer, static_cast<std::size_t>(count));
        return said_;
    }

private:
    GPid process_ = 0;
    int output_ = -1;
    std::string said_;
};

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

inline bool runUntil(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
        g_usleep(1000);
    }
    return true;
}

inline void runFor(milliseconds duration) {
    const auto end = Clock::now() + duration;
    (void)runUntil([end] { return Clock::now() > end; });
}

/// A menu's new items, and how long they took to come.
class Menu {
public:
    /// Calls the plug-in's operation with the list of files.
    template <typename File, typename Open> Menu(const std::vector<File*>& files, Open open) {
        GList* selection = nullptr;
        for (File* file : files)
            selection = g_list_append(selection, file);
        const auto begin = Clock::now();
        items_ = open(selection);
        took_ = std::chrono::duration_cast<microseconds>(Clock::now() - begin);
        g_list_free(selection);
    }
    ~Menu() { g_list_free_full(items_, &g_object_unref); }
    Menu(const Menu&) = delete;
    Menu& operator=(const Menu&) = delete;

    [[nodiscard]] microseconds took() const { return took_; }

    [[nodiscard]] std::vector<std::string> labels() const { return properties("label"); }
    [[nodiscard]] std::vector<std::string> icons() const { return properties("icon"); }

    void pickFirst() const { g_signal_emit_by_name(items_->data, "activate"); }

private:
    [[nodiscard]] std::vector<std::string> properties(const char* name) const {
        std::vector<std::string> texts;
        for (GList* item = items_; item != nullptr; item = item->next) {
            char* text = nullptr;
            g_object_get(item->data, name, &text, nullptr);
            texts.emplace_back(file_managers::Text(text).get());
        }
        return texts;
    }

    GList* items_ = nullptr;
    microseconds took_{0};
};

/// Runs the tests with a bus of their own.
inline int runTestsOnBus(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    runAheadOfOthers();
    GTestDBus* const bus = g_test_dbus_new(G_TEST_DBUS_NONE);
    g_test_dbus_up(bus);
    const int result = RUN_ALL_TESTS();
    g_test_dbus_stop(bus);
    return result;
}

#pragma once

// What Caja, Nemo, GNOME Files and Thunar have in common.

#include "Names.h"
#include "file-managers/gtk/Handles.h"

#include <algorithm>
#include <gio/gio.h>
#include <glib-unix.h>
#include <gmodule.h>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

using file_managers::Object;

class Application {
public:
    Application(int&, char**) {}
};

/// The module that a plug-in registers its types for.
struct Module {
    GTypeModule parent;
};

struct ModuleClass {
    GTypeModuleClass parent;
};

inline GType moduleType() {
    static const GType type = [] {
        const auto initialize = [](void* module, void*) {
            auto* const typeModule = static_cast<GTypeModuleClass*>(module);
            typeModule->load = [](GTypeModule*) -> gboolean { return 1; };
            typeModule->unload = [](GTypeModule*) {};
        };
        return g_type_register_static_simple(G_TYPE_TYPE_MODULE, "TestModule", sizeof(ModuleClass),
                                             initialize, sizeof(Module), nullptr, GTypeFlags(0));
    }();
    return type;
}

/// The type that the plug-in registers for its provider.
template <typename ModuleInterface> GType loadProviderType(GType module) {
    GModule* const plugin = g_module_open(FINDER_SYNC_PLUGIN, G_MODULE_BIND_LOCAL);
    if (plugin == nullptr)
        throw std::runtime_error(g_module_error());
    const auto symbol = [&](const std::string& name) {
        void* found = nullptr;
        if (g_module_symbol(plugin, (FINDER_SYNC_PLUGIN_PREFIX + name).c_str(), &found) == FALSE)
            throw std::runtime_error("the plug-in has no " + name);
        return found;
    };
    auto* const used = static_cast<GTypeModule*>(g_object_new(module, nullptr));
    (void)g_type_module_use(used);
    reinterpret_cast<void (*)(ModuleInterface*)>(symbol("_initialize"))(
        reinterpret_cast<ModuleInterface*>(used));
    const GType* types = nullptr;
    int count = 0;
    reinterpret_cast<void (*)(const GType**, int*)>(symbol("_list_types"))(&types, &count);
    if (count != 1)
        throw std::runtime_error("the plug-in does not have one type");
    return types[0];
}

/// What the file manager knows of a file.
struct File {
    std::string url;
    std::set<std::string> emblems = {};
    int changes = 0;
    bool isOutdated = false;
    bool isGone = false;
};

inline File& fileOf(void* object) {
    return *static_cast<File*>(g_object_get_data(G_OBJECT(object), "file"));
}

inline char* urlOf(void* object) {
    return g_strdup(fileOf(object).url.c_str());
}

/// Not by a GFile: where GVfs is installed, that loads its module, which leaks.
inline char* nameOf(void* object) {
    const char* const url = fileOf(object).url.c_str();
    const file_managers::Text path(g_filename_from_uri(url, nullptr, nullptr));
    return g_path_get_basename(path ? path.get() : url);
}

inline Object<GObject> newFile(GType fileInfo, GInterfaceInitFunc initialize, const char* url) {
    static const GType type = [&] {
        const GInterfaceInfo info = {initialize, nullptr, nullptr};
        const GType made =
            g_type_register_static_simple(G_TYPE_OBJECT, "TestFile", sizeof(GObjectClass), nullptr,
                                          sizeof(GObject), nullptr, GTypeFlags(0));
        g_type_add_interface_static(made, fileInfo, &info);
        return made;
    }();
    Object<GObject> object(static_cast<GObject*>(g_object_new(type, nullptr)));
    const auto destroy = [](void* file) { delete static_cast<File*>(file); };
    g_object_set_data_full(object.get(), "file", new File{.url = url}, destroy);
    return object;
}

class GtkFileManager {
public:
    static constexpr int plugins = 1;
    static inline const std::string badge =
        std::string("emblem-") + findersync::iconPrefix + "FolderIco";
    static inline const std::string label = "Copy __link & go";
    static inline const Texts notFiles = {"trash:///sync", "file:///sync/%ff",
                                          "sftp://elsewhere/sync"};
    static constexpr milliseconds leastTimeout{99};
    static constexpr milliseconds mostTimeout{250};

    GtkFileManager() = default;
    virtual ~GtkFileManager() {
        g_list_free_full(items_, &g_object_unref);
        g_main_loop_unref(loop_);
    }
    GtkFileManager(const GtkFileManager&) = delete;
    GtkFileManager& operator=(const GtkFileManager&) = delete;

    void show(const std::string& url) {
        if (files_.contains(url))
            update(file(url));
        else
            (void)file(url);
    }
    void forget(const std::string& url) { files_.erase(url); }

    Texts badges(const std::string& url) {
        GObject* const shown = file(url);
        if (std::exchange(fileOf(shown).isOutdated, false))
            update(shown);
        return {fileOf(shown).emblems.begin(), fileOf(shown).emblems.end()};
    }
    int changes(const std::string& url) { return fileOf(file(url)).changes; }

    [[nodiscard]] bool keepsNoFile() const {
        return std::ranges::all_of(files_, [](auto& each) { return each.second->ref_count == 1; });
    }

    /// Gives a file another URL. Tests go on naming it by its first.
    void rename(const std::string& url, const std::string& newUrl) {
        fileOf(file(url)).url = newUrl;
    }

    /// Someone deletes a file.
    void deleteFile(const std::string& url) { fileOf(file(url)).isGone = true; }

    Texts menu(const Texts& urls) {
        g_list_free_full(std::exchange(items_, nullptr), &g_object_unref);
        GList* selection = nullptr;
        for (const std::string& url : urls)
            selection = g_list_append(selection, file(url));
        const auto begin = Clock::now();
        items_ = newItems(selection);
        menuTook_ = std::chrono::duration_cast<microseconds>(Clock::now() - begin);
        g_list_free(selection);
        return properties("label");
    }
    [[nodiscard]] microseconds menuTook() const { return menuTook_; }
    [[nodiscard]] Texts icons() const { return properties("icon"); }
    void pickFirst() const { g_signal_emit_by_name(items_->data, "activate"); }

    static void processEvents() {
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
    }

    void run(std::function<void()> input) {
        const auto read = [](int, GIOCondition, void* function) -> gboolean {
            (*static_cast<std::function<void()>*>(function))();
            return G_SOURCE_CONTINUE;
        };
        g_unix_fd_add(STDIN_FILENO, GIOCondition(G_IO_IN | G_IO_HUP), read, &input);
        g_main_loop_run(loop_);
    }
    void quit() { g_main_loop_quit(loop_); }

protected:
    virtual Object<GObject> newFile(const char* url) = 0;
    /// Has the plug-in add the emblems of a file.
    virtual void update(GObject* file) = 0;
    virtual GList* newItems(GList* selection) = 0;

private:
    /// A file, which is shown if it was not before.
    GObject* file(const std::string& url) {
        auto& file = files_[url];
        if (!file) {
            file = newFile(url.c_str());
            update(file.get());
        }
        return file.get();
    }

    [[nodiscard]] Texts properties(const char* name) const {
        Texts texts;
        for (GList* item = items_; item != nullptr; item = item->next) {
            file_managers::Text text;
            g_object_get(item->data, name, static_cast<char**>(file_managers::Out(text)), nullptr);
            texts.emplace_back(text.get());
        }
        return texts;
    }

    std::map<std::string, Object<GObject>> files_;
    GList* items_ = nullptr; ///< of the menu that was opened last
    microseconds menuTook_{0};
    GMainLoop* loop_ = g_main_loop_new(nullptr, FALSE);
};

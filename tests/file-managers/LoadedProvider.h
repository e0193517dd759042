#pragma once

// The plug-in of Caja, Nemo or GNOME Files without its file manager and without a display: loaded
// as it loads it, and shown files of the program's own.

#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/Handles.h"

#include "tests/file-managers/LoadedPlugin.h"

#include <set>
#include <string>
#include <vector>

/// A file as the file manager has it.
struct File {
    GObject parent;
    std::string* url;
    std::set<std::string>* emblems;
    int* invalidations;
};

struct FileClass {
    GObjectClass parent;
};

inline File& fileOf(file_managers::FileInfo* info) {
    return *reinterpret_cast<File*>(info);
}

inline void initializeFile(GTypeInstance* instance, void*) {
    auto* const file = reinterpret_cast<File*>(instance);
    file->url = new std::string;
    file->emblems = new std::set<std::string>;
    file->invalidations = new int(0);
}

inline void finalizeFile(GObject* object) {
    auto* const file = reinterpret_cast<File*>(object);
    delete file->url;
    delete file->emblems;
    delete file->invalidations;
    G_OBJECT_CLASS(g_type_class_peek_parent(G_OBJECT_GET_CLASS(object)))->finalize(object);
}

inline void initializeFileClass(void* type, void*) {
    static_cast<GObjectClass*>(type)->finalize = &finalizeFile;
}

inline void initializeFileInfo(void* interface, void*) {
    using file_managers::FileInfo;
    auto* const info = static_cast<FM_INTERFACE(FileInfo)*>(interface);
    info->get_uri = [](FileInfo* file) { return g_strdup(fileOf(file).url->c_str()); };
    info->add_emblem = [](FileInfo* file, const char* name) { fileOf(file).emblems->insert(name); };
    info->invalidate_extension_info = [](FileInfo* file) { ++*fileOf(file).invalidations; };
}

inline GType fileType() {
    static const GType type = [] {
        const GTypeInfo info = {.class_size = sizeof(FileClass),
                                .base_init = nullptr,
                                .base_finalize = nullptr,
                                .class_init = &initializeFileClass,
                                .class_finalize = nullptr,
                                .class_data = nullptr,
                                .instance_size = sizeof(File),
                                .n_preallocs = 0,
                                .instance_init = &initializeFile,
                                .value_table = nullptr};
        const GInterfaceInfo fileInfo = {&initializeFileInfo, nullptr, nullptr};
        const GType made = g_type_register_static(G_TYPE_OBJECT, "TestFile", &info, GTypeFlags(0));
        g_type_add_interface_static(made, FM_TYPE(FILE_INFO), &fileInfo);
        return made;
    }();
    return type;
}

inline GType providerType() {
    static const GType type = [] {
        GModule* const plugin = openPlugin();
        const std::string prefix = FINDER_SYNC_PREFIX;
        auto* const module = static_cast<GTypeModule*>(g_object_new(moduleType(), nullptr));
        (void)g_type_module_use(module);
        symbol<void(GTypeModule*)>(plugin, prefix + "_module_initialize")(module);
        const GType* types = nullptr;
        int count = 0;
        symbol<void(const GType**, int*)>(plugin, prefix + "_module_list_types")(&types, &count);
        if (count != 1)
            throw std::runtime_error("the plug-in has not one type");
        return types[0];
    }();
    return type;
}

class LoadedProvider {
public:
    LoadedProvider() {
        provider_.reset(static_cast<GObject*>(g_object_new(providerType(), nullptr)));
        g_closure_sink(g_closure_ref(closure_));
    }
    ~LoadedProvider() { g_closure_unref(closure_); }
    LoadedProvider(const LoadedProvider&) = delete;
    LoadedProvider& operator=(const LoadedProvider&) = delete;

    /// Shows a file as the file manager does: its emblems are those that the plug-in adds now.
    void show(File* file) {
        file->emblems->clear();
        auto* const info = reinterpret_cast<file_managers::FileInfo*>(file);
        file_managers::OperationHandle* handle = nullptr;
        EXPECT_EQ(FM_CALL(info_provider_update_file_info)(
                      reinterpret_cast<file_managers::InfoProvider*>(provider_.get()), info,
                      closure_, &handle),
                  FM_CONSTANT(OPERATION_COMPLETE));
    }

    /// Shows it anew if the plug-in wants that.
    void showAnew(File* file) {
        if (*file->invalidations == 0)
            return;
        *file->invalidations = 0;
        show(file);
    }

    file_managers::Object<File> shown(const std::string& url) {
        file_managers::Object<File> file(static_cast<File*>(g_object_new(fileType(), nullptr)));
        *file->url = url;
        show(file.get());
        return file;
    }

    [[nodiscard]] Menu menu(const std::vector<File*>& files) const {
        auto* const provider = reinterpret_cast<file_managers::MenuProvider*>(provider_.get());
        return Menu(files, [provider](GList* selection) {
#if defined(FINDER_SYNC_NAUTILUS)
            return FM_CALL(menu_provider_get_file_items)(provider, selection);
#else
            return FM_CALL(menu_provider_get_file_items)(provider, nullptr, selection);
#endif
        });
    }

    static constexpr const char* emblem = FINDER_SYNC_GROUP ".FolderIco";

private:
    file_managers::Object<GObject> provider_;
    GClosure* closure_ = g_cclosure_new(G_CALLBACK(+[] {}), nullptr, nullptr);
};

#pragma once

// Caja, Nemo or GNOME Files, as far as the plug-in can tell.

#include "file-managers/gtk/FileManager.h"
#include "tests/file-managers/GtkUnderTest.h"

#include <gtest/gtest.h>

class FileManager : public GtkFileManager {
public:
    static constexpr bool hasBadges = true;
    static inline const Texts services;

    FileManager() {
        const auto noticed = [](GObject*, int* notices) { ++*notices; };
        g_signal_connect(provider_.get(), "items_updated", G_CALLBACK(+noticed), &menuNotices_);
    }

    [[nodiscard]] int menuNotices() const { return menuNotices_; }

private:
    static GType providerType() {
        static const GType type = loadProviderType<GTypeModule>(moduleType());
        return type;
    }

    static void initializeFileInfo(void* interface, void*) {
        using file_managers::FileInfo;
        auto* const info = static_cast<FM_INTERFACE(FileInfo)*>(interface);
        info->get_uri = [](FileInfo* file) { return urlOf(file); };
        info->get_name = [](FileInfo* file) { return nameOf(file); };
        info->is_gone = [](FileInfo* file) -> gboolean { return fileOf(file).isGone; };
        info->add_emblem = [](FileInfo* file, const char* name) {
            fileOf(file).emblems.insert(name);
        };
        info->invalidate_extension_info = [](FileInfo* file) {
            fileOf(file).isOutdated = true;
            ++fileOf(file).changes;
        };
    }

    Object<GObject> newFile(const char* url) override {
        return ::newFile(FM_TYPE(FILE_INFO), &initializeFileInfo, url);
    }

    void update(GObject* file) override {
        fileOf(file).emblems.clear();
        file_managers::OperationHandle* handle = nullptr;
        EXPECT_EQ(FM_CALL(info_provider_update_file_info)(
                      reinterpret_cast<file_managers::InfoProvider*>(provider_.get()),
                      reinterpret_cast<file_managers::FileInfo*>(file), closure_.get(), &handle),
                  FM_CONSTANT(OPERATION_COMPLETE));
    }

    GList* newItems(GList* selection) override {
        auto* const provider = reinterpret_cast<file_managers::MenuProvider*>(provider_.get());
#if defined(FM_NAUTILUS)
        return FM_CALL(menu_provider_get_file_items)(provider, selection);
#else
        return FM_CALL(menu_provider_get_file_items)(provider, nullptr, selection);
#endif
    }

    static file_managers::Closure newClosure() {
        GClosure* const closure = g_cclosure_new(G_CALLBACK(+[] {}), nullptr, nullptr);
        g_closure_sink(g_closure_ref(closure));
        return file_managers::Closure(closure);
    }

    int menuNotices_ = 0;
    Object<GObject> provider_{static_cast<GObject*>(g_object_new(providerType(), nullptr))};
    file_managers::Closure closure_ = newClosure();
};

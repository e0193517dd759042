// The plug-in without a file manager and without a display: it is loaded as a file manager loads
// it, and shown files of the test's own.

#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/Handles.h"

#include "tests/file-managers/LoadedPlugin.h"

#include <csignal>
#include <memory>
#include <set>
#include <string>
#include <vector>

using namespace file_managers;

namespace {

// A file as the file manager has it.

struct File {
    GObject parent;
    std::string* url;
    std::set<std::string>* emblems;
    int* invalidations;
};

struct FileClass {
    GObjectClass parent;
};

File& fileOf(FileInfo* info) {
    return *reinterpret_cast<File*>(info);
}

GType fileType();

File* newFile(const std::string& url) {
    auto* const file = static_cast<File*>(g_object_new(fileType(), nullptr));
    *file->url = url;
    return file;
}

void initializeFile(GTypeInstance* instance, void*) {
    auto* const file = reinterpret_cast<File*>(instance);
    file->url = new std::string;
    file->emblems = new std::set<std::string>;
    file->invalidations = new int(0);
}

void finalizeFile(GObject* object) {
    auto* const file = reinterpret_cast<File*>(object);
    delete file->url;
    delete file->emblems;
    delete file->invalidations;
    G_OBJECT_CLASS(g_type_class_peek_parent(G_OBJECT_GET_CLASS(object)))->finalize(object);
}

void initializeFileClass(void* type, void*) {
    static_cast<GObjectClass*>(type)->finalize = &finalizeFile;
}

void initializeFileInfo(void* interface, void*) {
    auto* const info = static_cast<FM_INTERFACE(FileInfo)*>(interface);
    info->get_uri = [](FileInfo* file) { return g_strdup(fileOf(file).url->c_str()); };
    info->add_emblem = [](FileInfo* file, const char* name) { fileOf(file).emblems->insert(name); };
    info->invalidate_extension_info = [](FileInfo* file) { ++*fileOf(file).invalidations; };
}

GType fileType() {
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

GType providerType() {
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

class Plugin : public testing::Test {
protected:
    Plugin() {
        provider_.reset(static_cast<GObject*>(g_object_new(providerType(), nullptr)));
        g_closure_sink(g_closure_ref(closure_));
    }
    ~Plugin() override { g_closure_unref(closure_); }

    /// Shows a file as the file manager does: its emblems are those that the plug-in adds now.
    void show(File* file) {
        file->emblems->clear();
        auto* const info = reinterpret_cast<FileInfo*>(file);
        OperationHandle* handle = nullptr;
        EXPECT_EQ(FM_CALL(info_provider_update_file_info)(
                      reinterpret_cast<InfoProvider*>(provider_.get()), info, closure_, &handle),
                  FM_CONSTANT(OPERATION_COMPLETE));
    }

    Object<File> shown(const std::string& url) {
        Object<File> file(newFile(url));
        show(file.get());
        return file;
    }

    [[nodiscard]] Menu menu(const std::vector<File*>& files) const {
        auto* const provider = reinterpret_cast<MenuProvider*>(provider_.get());
        return Menu(files, [provider](GList* selection) {
#if defined(FINDER_SYNC_NAUTILUS)
            return FM_CALL(menu_provider_get_file_items)(provider, selection);
#else
            return FM_CALL(menu_provider_get_file_items)(provider, nullptr, selection);
#endif
        });
    }

    /// Whether the plug-in gives a file its badge, as the file manager finds when it is told to
    /// look.
    bool hasBadge(File* file) {
        if (std::exchange(*file->invalidations, 0) > 0)
            show(file);
        return file->emblems->contains(emblem);
    }
    /// Waits until the plug-in has asked about a file and shows its badge.
    bool getsBadge(File* file) {
        return runUntil([this, file] { return hasBadge(file); });
    }
    bool losesBadge(File* file) {
        return runUntil([this, file] { return !hasBadge(file); });
    }

    static constexpr const char* emblem = FINDER_SYNC_GROUP ".FolderIco";

private:
    Object<GObject> provider_;
    GClosure* closure_ = g_cclosure_new(G_CALLBACK(+[] {}), nullptr, nullptr);
};

TEST_F(Plugin, BadgesARootFolderAndNothingElse) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    const auto file = shown("file:///sync/a");
    EXPECT_TRUE(root->emblems->empty()) << "nothing is known yet, and nothing waits";
    EXPECT_TRUE(getsBadge(root.get()));
    EXPECT_TRUE(file->emblems->empty());
    EXPECT_EQ(*file->invalidations, 0);
}

TEST_F(Plugin, AsksInBatches) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    std::vector<Object<File>> files;
    for (int index = 0; index < 2500; ++index)
        files.push_back(shown("file:///sync/" + std::to_string(index)));
    EXPECT_TRUE(runUntil([&] { return extension.said().ends_with("badges 500\n"); }))
        << extension.said();
    EXPECT_NE(extension.said().find("badges 1000\nbadges 1000\nbadges 500\n"), std::string::npos)
        << extension.said();
}

TEST_F(Plugin, LeavesAloneWhatIsNoFileHere) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    const auto trash = shown("trash:///sync");
    const auto notText = shown("file:///sync/%ff");
    EXPECT_TRUE(getsBadge(root.get()));
    runFor(milliseconds(50));
    EXPECT_EQ(extension.said().find("badges 2"), std::string::npos) << extension.said();
    EXPECT_EQ(extension.said().find("badges 3"), std::string::npos) << extension.said();
}

TEST_F(Plugin, TakesTheBadgeAwayWhenTheExtensionEndsAndAsksAgainWhenItIsBack) {
    auto extension = std::make_unique<ExtensionProcess>(std::vector<std::string>{"/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    extension.reset();
    EXPECT_TRUE(losesBadge(root.get()));
    ExtensionProcess again({"/sync"});
    EXPECT_TRUE(getsBadge(root.get()));
}

TEST_F(Plugin, FilesMayGoWhileTheyAreAskedAbout) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    extension.signal(SIGSTOP);
    for (int index = 0; index < 100; ++index)
        (void)shown("file:///sync/" + std::to_string(index)); // gone at once
    runFor(milliseconds(50));
    {
        const auto file = shown("file:///other");
        runFor(milliseconds(50));
    }
    extension.signal(SIGCONT);
    EXPECT_TRUE(getsBadge(root.get()));
    runFor(milliseconds(50));
}

TEST_F(Plugin, AHungExtensionAnswersWhenItGoesOn) {
    ExtensionProcess extension({"/sync", "/other"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    extension.signal(SIGSTOP);
    const auto begin = Clock::now();
    const auto other = shown("file:///other");
    EXPECT_LT(Clock::now() - begin, milliseconds(60));
    runFor(milliseconds(300));
    EXPECT_TRUE(other->emblems->empty());
    extension.signal(SIGCONT);
    EXPECT_TRUE(getsBadge(other.get()));
}

TEST_F(Plugin, OffersTheEntriesAndTellsWhatIsPicked) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    const auto file = shown("file:///sync/a%20b");
    const Menu opened = menu({file.get()});
    EXPECT_EQ(opened.labels(), std::vector<std::string>{"Copy __link & go"});
    EXPECT_EQ(opened.icons(), std::vector<std::string>{FINDER_SYNC_GROUP ".icon_URLlink"});
    opened.pickFirst();
    const std::string action = "action createLinkClicked: file:///sync/a%20b\n";
    EXPECT_TRUE(runUntil([&] { return extension.said().find(action) != std::string::npos; }))
        << extension.said();
}

TEST_F(Plugin, WaitsForAMenuATenthOfASecondAtTheMost) {
    ExtensionProcess slow({"--delay", "90", "/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    const Menu opened = menu({root.get()});
    EXPECT_EQ(opened.labels().size(), 1U) << "within the time";
    EXPECT_GE(opened.took(), milliseconds(90));
}

TEST_F(Plugin, GoesWithoutEntriesWhenTheExtensionIsSlowAndThenLeavesItAlone) {
    ExtensionProcess slow({"--delay", "1000", "/sync"});
    const auto root = shown("file:///sync");
    EXPECT_TRUE(getsBadge(root.get()));
    const Menu first = menu({root.get()});
    EXPECT_EQ(first.labels(), std::vector<std::string>());
    EXPECT_GE(first.took(), milliseconds(99));
    EXPECT_LT(first.took(), milliseconds(500));
    const Menu second = menu({root.get()});
    EXPECT_EQ(second.labels(), std::vector<std::string>());
    EXPECT_LT(second.took(), milliseconds(60)) << "one such wait in five seconds";
}

// Played by tests/faults, too, while calls fail, so no badge and no entry is demanded.
TEST_F(Plugin, OutlivesASessionAndKeepsNoFile) {
    ExtensionProcess extension({"/sync"});
    const auto root = shown("file:///sync");
    const auto file = shown("file:///sync/a%20b");
    const auto end = Clock::now() + milliseconds(300);
    (void)runUntil([&] { return hasBadge(root.get()) || Clock::now() > end; });
    {
        const Menu opened = menu({file.get()});
        EXPECT_LT(opened.took(), milliseconds(500));
        if (!opened.labels().empty())
            opened.pickFirst();
    }
    runFor(milliseconds(50));
    extension.end();
    runFor(milliseconds(50));
    EXPECT_EQ(menu({file.get()}).labels(), std::vector<std::string>());
    EXPECT_EQ(G_OBJECT(root.get())->ref_count, 1U);
    EXPECT_EQ(G_OBJECT(file.get())->ref_count, 1U);
}

TEST_F(Plugin, WithoutAnExtensionThereIsNothingToWaitFor) {
    const auto file = shown("file:///sync");
    const Menu opened = menu({file.get()});
    EXPECT_EQ(opened.labels(), std::vector<std::string>());
    EXPECT_LT(opened.took(), milliseconds(60));
    runFor(milliseconds(50));
    EXPECT_TRUE(file->emblems->empty());
}

} // namespace

int main(int argc, char** argv) {
    return runTestsOnBus(argc, argv);
}

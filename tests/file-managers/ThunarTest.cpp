// Badges in Thunar: the emblems that GVfs stores for folders. Its daemon runs on the tests' bus,
// and Thunar in a process of its own, which can be killed. No test may run the main loop, or the
// plug-in that other tests have loaded into this process takes part.

#include "tests/file-managers/PluginTest.h"

#include <gio/gio.h>
#include <random>
#include <sys/stat.h>

namespace {

const std::string chosen = "emblem-favorite"; ///< by the user
const std::string ours = FileManager::badge;

bool waitUntil(const std::function<bool()>& condition) {
    for (int tries = 0; tries < 10000; ++tries) {
        if (condition())
            return true;
        (void)::usleep(1000);
    }
    return false;
}

class Emblems : public testing::Test {
protected:
    Emblems() {
        std::filesystem::create_directories(a);
        std::filesystem::create_directory(b);
        EXPECT_TRUE(choose(a));
    }
    ~Emblems() override { std::filesystem::remove_all(session->folder() / "files"); }

    static Texts emblems(const std::string& folder) {
        const Object<GFile> file(g_file_new_for_path(folder.c_str()));
        const Object<GFileInfo> info(g_file_query_info(file.get(), "metadata::emblems",
                                                       G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
        if (!info || g_file_info_has_attribute(info.get(), "metadata::emblems") == FALSE)
            return {};
        char** const names = g_file_info_get_attribute_stringv(info.get(), "metadata::emblems");
        return {names, names + g_strv_length(names)};
    }

    /// The user chooses an emblem, in place of all others.
    static bool choose(const std::string& folder) {
        const Object<GFile> file(g_file_new_for_path(folder.c_str()));
        const char* const names[] = {chosen.c_str(), nullptr};
        return g_file_set_attribute(file.get(), "metadata::emblems", G_FILE_ATTRIBUTE_TYPE_STRINGV,
                                    const_cast<char**>(names), G_FILE_QUERY_INFO_NONE, nullptr,
                                    nullptr) != FALSE;
    }

    [[nodiscard]] bool have(const Texts& ofA, const Texts& ofB) const {
        return waitUntil([&] { return emblems(a) == ofA && emblems(b) == ofB; });
    }

    /// Whether the plug-in remembers nothing that it would have to take away.
    static bool isRecordGone() {
        return waitUntil([] { return !isRecorded(); });
    }

    const std::string a = session->folder() / "files/a";
    const std::string b = session->folder() / "files/b";
    static bool isRecorded() {
        return exists(session->folder() / "none/.local/state/finder-sync/thunar-emblems");
    }
};

/// A Thunar in a process of its own.
class OtherThunar : public ChildProcess {
public:
    OtherThunar()
        : ChildProcess("sh", {"-c", "exec \"$1\" <>\"$2\"", "sh", FINDER_SYNC_HEADLESS, orders()}) {
    }

private:
    /// Where none ever come from.
    static std::string orders() {
        const std::string fifo = session->folder() / "orders";
        (void)::mkfifo(fifo.c_str(), S_IRUSR | S_IWUSR);
        return fifo;
    }
};

TEST_F(Emblems, AreThoseOfTheRootFoldersBesideTheUsersOwn) {
    const OtherThunar thunar;
    struct stat before = {};
    struct stat after = {};
    (void)::stat(a.c_str(), &before);
    ExtensionProcess extension({a, "relative", a + "/none", "--then", b});
    EXPECT_TRUE(have({chosen, ours}, {}));
    extension.signal(SIGUSR1);
    EXPECT_TRUE(have({chosen}, {ours}));
    extension.end();
    EXPECT_TRUE(have({chosen}, {}));
    EXPECT_TRUE(isRecordGone());
    (void)::stat(a.c_str(), &after);
    EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec) << "the folder itself is not touched";
}

TEST_F(Emblems, AppearOnAFolderThatIsMadeLater) {
    const OtherThunar thunar;
    std::filesystem::remove(b);
    ExtensionProcess extension({a, b});
    EXPECT_TRUE(have({chosen, ours}, {}));
    std::filesystem::create_directory(b);
    EXPECT_TRUE(have({chosen, ours}, {ours}));
}

TEST_F(Emblems, StayBehindWhenAFolderIsRenamedAndComeBackWhenTheyAreReplaced) {
    const OtherThunar thunar;
    ExtensionProcess extension({a, b});
    ASSERT_TRUE(have({chosen, ours}, {ours}));
    (void)choose(a);
    const Object<GFile> file(g_file_new_for_path(b.c_str()));
    const Object<GFile> renamed(g_file_set_display_name(file.get(), "renamed", nullptr, nullptr));
    const std::string newName = session->folder() / "files/renamed";
    EXPECT_EQ(emblems(newName), Texts{ours}) << "GVfs takes it along";
    EXPECT_TRUE(waitUntil([&] { return emblems(newName).empty(); }));
    EXPECT_TRUE(have({chosen, ours}, {}));
}

TEST_F(Emblems, WaitForAnExtensionThatFails) {
    const OtherThunar thunar;
    ExtensionProcess extension({"--late", b});
    EXPECT_TRUE(have({chosen}, {ours}));
}

TEST_F(Emblems, AreTakenAwayByTheNextThunarWhereverTheLastWasKilled) {
    std::minstd_rand random(1); // NOLINT(bugprone-random-generator-seed): the same in each run
    std::uniform_int_distribution<useconds_t> pause(0, 100000);
    bool wereStored = false;
    bool wereRecorded = false;
    for (int round = 0; round < 30; ++round) {
        OtherThunar thunar;
        ExtensionProcess extension({a, b, "--then", b});
        (void)::usleep(pause(random));
        extension.signal(SIGUSR1);
        (void)::usleep(pause(random));
        (round % 2 == 0 ? static_cast<ChildProcess&>(thunar) : extension).end();
        wereStored = wereStored || emblems(b) == Texts{ours};
        wereRecorded = wereRecorded || isRecorded();
    }
    EXPECT_TRUE(wereStored);
    EXPECT_TRUE(wereRecorded);
    const OtherThunar next;
    EXPECT_TRUE(have({chosen}, {}));
    EXPECT_TRUE(isRecordGone());
}

TEST_F(Emblems, AreTakenAwayAndNotStoredWhenTheyAreSwitchedOff) {
    const ExtensionProcess extension({a, b});
    {
        const OtherThunar thunar;
        ASSERT_TRUE(have({chosen, ours}, {ours}));
    }
    (void)::setenv("FINDER_SYNC_THUNAR_BADGES", "0", 1);
    const auto begin = Clock::now();
    const OtherThunar next;
    EXPECT_TRUE(have({chosen}, {}));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(2));
    EXPECT_TRUE(isRecordGone());
    (void)::usleep(500000);
    EXPECT_EQ(emblems(b), Texts());
    (void)::unsetenv("FINDER_SYNC_THUNAR_BADGES");
}

} // namespace

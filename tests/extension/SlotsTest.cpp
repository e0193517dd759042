// The object's own calls go through its virtual slots: a subclass that overrides every one of them
// sees them all.

#include "tests/RecordingTest.h"

#include <algorithm>
#include <utility>

using findersync::FinderSync;
using platform::NSStreamEvent;
using tests::Strings;

namespace {

/// Notes every call of a slot and passes it on.
class Overriding : public FinderSync {
public:
    [[nodiscard]] const URL& myFolderURL() const override {
        return note("myFolderURL"), FinderSync::myFolderURL();
    }
    void setMyFolderURL(URL url) override {
        note("setMyFolderURL"), FinderSync::setMyFolderURL(std::move(url));
    }
    [[nodiscard]] const Strings& pathsOfRootFolders() const override {
        return note("pathsOfRootFolders"), FinderSync::pathsOfRootFolders();
    }
    void setPathsOfRootFolders(Strings paths) override {
        note("setPathsOfRootFolders"), FinderSync::setPathsOfRootFolders(std::move(paths));
    }
    [[nodiscard]] std::uint32_t serverPort() const override {
        return note("serverPort"), FinderSync::serverPort();
    }
    void setServerPort(std::uint32_t port) override {
        note("setServerPort"), FinderSync::setServerPort(port);
    }
    [[nodiscard]] bool isSocketConnected() const override {
        return note("isSocketConnected"), FinderSync::isSocketConnected();
    }
    void setIsSocketConnected(bool isConnected) override {
        note("setIsSocketConnected"), FinderSync::setIsSocketConnected(isConnected);
    }
    [[nodiscard]] std::int64_t displayUrlLink() const override {
        return note("displayUrlLink"), FinderSync::displayUrlLink();
    }
    void setDisplayUrlLink(std::int64_t value) override {
        note("setDisplayUrlLink"), FinderSync::setDisplayUrlLink(value);
    }
    [[nodiscard]] std::int64_t displayBackup() const override {
        return note("displayBackup"), FinderSync::displayBackup();
    }
    void setDisplayBackup(std::int64_t value) override {
        note("setDisplayBackup"), FinderSync::setDisplayBackup(value);
    }
    [[nodiscard]] const std::string& shareContactTitle() const override {
        return note("shareContactTitle"), FinderSync::shareContactTitle();
    }
    void setShareContactTitle(std::string title) override {
        note("setShareContactTitle"), FinderSync::setShareContactTitle(std::move(title));
    }
    [[nodiscard]] const std::string& shareViaUrlTitle() const override {
        return note("shareViaUrlTitle"), FinderSync::shareViaUrlTitle();
    }
    void setShareViaUrlTitle(std::string title) override {
        note("setShareViaUrlTitle"), FinderSync::setShareViaUrlTitle(std::move(title));
    }
    [[nodiscard]] const std::string& backupTitle() const override {
        return note("backupTitle"), FinderSync::backupTitle();
    }
    void setBackupTitle(std::string title) override {
        note("setBackupTitle"), FinderSync::setBackupTitle(std::move(title));
    }
    void connect() override { note("connect"), FinderSync::connect(); }
    void stream(platform::NSStream& stream, NSStreamEvent event) override {
        note("stream"), FinderSync::stream(stream, event);
    }
    [[nodiscard]] FinderSync* init() override { return note("init"), FinderSync::init(); }
    void beginObservingDirectoryAtURL(const platform::NSURL& url) override {
        note("beginObserving"), FinderSync::beginObservingDirectoryAtURL(url);
    }
    void endObservingDirectoryAtURL(const platform::NSURL& url) override {
        note("endObserving"), FinderSync::endObservingDirectoryAtURL(url);
    }
    [[nodiscard]] std::string errnoDescription() override {
        return note("errnoDescription"), FinderSync::errnoDescription();
    }
    [[nodiscard]] findersync::AttributesNames
    attributesNamesAtPath(const std::string& path) override {
        return note("attributesNamesAtPath"), FinderSync::attributesNamesAtPath(path);
    }
    void requestBadgeIdentifierForURL(const platform::NSURL& url) override {
        note("requestBadge"), FinderSync::requestBadgeIdentifierForURL(url);
    }
    [[nodiscard]] std::shared_ptr<platform::NSMenu>
    menuForMenuKind(platform::FIMenuKind kind) override {
        return note("menuForMenuKind"), FinderSync::menuForMenuKind(kind);
    }
    [[nodiscard]] std::string JSONStringify(const platform::Object& value,
                                            bool prettyPrinted) override {
        return note("JSONStringify"), FinderSync::JSONStringify(value, prettyPrinted);
    }
    [[nodiscard]] platform::NSDictionary JSONParseDictionary(std::string_view text) override {
        return note("JSONParseDictionary"), FinderSync::JSONParseDictionary(text);
    }
    void sendClickedData(const std::string& clickType) override {
        note("sendClickedData"), FinderSync::sendClickedData(clickType);
    }
    void createLinkClicked(const platform::NSMenuItem* sender) override {
        note("createLinkClicked"), FinderSync::createLinkClicked(sender);
    }
    void backupClicked(const platform::NSMenuItem* sender) override {
        note("backupClicked"), FinderSync::backupClicked(sender);
    }
    void shareContactsClicked(const platform::NSMenuItem* sender) override {
        note("shareContactsClicked"), FinderSync::shareContactsClicked(sender);
    }
    void inProgressClicked(const platform::NSMenuItem* sender) override {
        note("inProgressClicked"), FinderSync::inProgressClicked(sender);
    }
    void notSyncedClicked(const platform::NSMenuItem* sender) override {
        note("notSyncedClicked"), FinderSync::notSyncedClicked(sender);
    }
    void syncedClicked(const platform::NSMenuItem* sender) override {
        note("syncedClicked"), FinderSync::syncedClicked(sender);
    }

    /// The slots called since the last asking, in order.
    Strings taken() { return std::exchange(notes_, {}); }

private:
    void note(const char* slot) const { notes_.emplace_back(slot); }

    mutable Strings notes_;
};

class Slots : public tests::RecordingTest {
protected:
    /// The slots that a started and connected object calls when one read finds this line.
    Strings slotsFor(const std::string& line) {
        auto& started = static_cast<Overriding&>(*extension);
        started.taken();
        receive(line + "\n");
        return started.taken();
    }
};

TEST_F(Slots, StartUpSetsWhatItReadsAndConnectsThroughItsSlots) {
    tests::script().settings = {
        {"DisplayUrlLink", {std::int64_t{0}}},  {"DisplayBackup", {std::int64_t{1}}},
        {"ShareContactTitle", {std::string()}}, {"ShareViaUrlTitle", {std::string()}},
        {"BackupTitle", {std::string()}},
    };
    auto& started = start<Overriding>();
    EXPECT_EQ(started.taken(),
              (Strings{"init", "setDisplayUrlLink", "setDisplayBackup", "setShareContactTitle",
                       "setShareViaUrlTitle", "setBackupTitle", "setMyFolderURL", "setServerPort",
                       "myFolderURL", "connect", "serverPort"}));
}

TEST_F(Slots, StreamEventsArriveThroughTheirSlot) {
    auto& started = start<Overriding>();
    started.taken();
    platform::recording::runAll();
    EXPECT_EQ(started.taken(), (Strings{"stream", "stream", "stream"}));
    platform::recording::peerCloses();
    platform::recording::runAll();
    EXPECT_EQ(started.taken(), (Strings{"stream", "setIsSocketConnected"}));
}

TEST_F(Slots, CommandsReadAndWriteThroughTheAccessors) {
    startConnected<Overriding>();
    EXPECT_EQ(
        slotsFor(R"({"type":"add_folder","path":"/a"})"),
        (Strings{"stream", "JSONParseDictionary", "pathsOfRootFolders", "setPathsOfRootFolders"}));
    EXPECT_EQ(slotsFor(R"({"type":"add_folder","path":"/a"})"),
              (Strings{"stream", "JSONParseDictionary", "pathsOfRootFolders"}));
    EXPECT_EQ(
        slotsFor(R"({"type":"del_folder","path":"/a"})"),
        (Strings{"stream", "JSONParseDictionary", "pathsOfRootFolders", "setPathsOfRootFolders"}));
    EXPECT_EQ(slotsFor(R"({"type":"del_folder","path":"/a"})"),
              (Strings{"stream", "JSONParseDictionary", "pathsOfRootFolders"}));
    EXPECT_EQ(slotsFor(R"({"type":"set_locale","backupTitle":"b","shareViaUrlTitle":"u",)"
                       R"("shareContactTitle":"c"})"),
              (Strings{"stream", "JSONParseDictionary", "setShareContactTitle",
                       "setShareViaUrlTitle", "setBackupTitle"}));
    EXPECT_EQ(slotsFor(R"({"type":"set_menu_usage","displayBackup":"1"})"),
              (Strings{"stream", "JSONParseDictionary", "setDisplayBackup"}));
}

TEST_F(Slots, ALineIsAppliedBeforeTheNextIsParsed) {
    startConnected<Overriding>();
    const std::string usage = R"({"type":"set_menu_usage","displayBackup":"1"})";
    EXPECT_EQ(slotsFor(usage + "\n" + usage),
              (Strings{"stream", "JSONParseDictionary", "setDisplayBackup", "JSONParseDictionary",
                       "setDisplayBackup"}));
}

TEST_F(Slots, BadgesMenusAndListingsReadThroughTheAccessors) {
    auto& started = startConnected<Overriding>();
    started.setPathsOfRootFolders({"/q", "/a"});
    started.taken();
    started.requestBadgeIdentifierForURL(*platform::fileURLWithPath("/a"));
    EXPECT_EQ(started.taken(), (Strings{"requestBadge", "pathsOfRootFolders", "pathsOfRootFolders",
                                        "pathsOfRootFolders"}));

    tests::script().selection = {platform::fileURLWithPath("/a/x")};
    (void)started.menuForMenuKind(platform::FIMenuKind::ContextualMenuForItems);
    EXPECT_EQ(started.taken(),
              (Strings{"menuForMenuKind", "isSocketConnected", "pathsOfRootFolders",
                       "pathsOfRootFolders", "pathsOfRootFolders", "shareContactTitle",
                       "shareViaUrlTitle", "backupTitle", "displayBackup"}));

    tests::script().attributeLists = {{.result = -1, .bytes = {}}};
    (void)started.attributesNamesAtPath("/a");
    EXPECT_EQ(started.taken(), (Strings{"attributesNamesAtPath", "errnoDescription"}));
}

TEST_F(Slots, ActionsReportThroughTheirSlots) {
    auto& started = startConnected<Overriding>();
    tests::script().selection = {platform::fileURLWithPath("/a/x")};
    started.taken();
    const auto slotsOf = [&started](void (FinderSync::*action)(const platform::NSMenuItem*)) {
        (started.*action)(nullptr);
        return started.taken();
    };
    const auto expected = [](const char* action) {
        return Strings{action, "sendClickedData", "JSONStringify"};
    };
    EXPECT_EQ(slotsOf(&FinderSync::createLinkClicked), expected("createLinkClicked"));
    EXPECT_EQ(slotsOf(&FinderSync::backupClicked), expected("backupClicked"));
    EXPECT_EQ(slotsOf(&FinderSync::shareContactsClicked), expected("shareContactsClicked"));
    EXPECT_EQ(slotsOf(&FinderSync::inProgressClicked), expected("inProgressClicked"));
    EXPECT_EQ(slotsOf(&FinderSync::notSyncedClicked), expected("notSyncedClicked"));
    EXPECT_EQ(slotsOf(&FinderSync::syncedClicked), expected("syncedClicked"));
}

TEST_F(Slots, AnOverriddenValueIsTheOneThatIsUsed) {
    class Elsewhere : public FinderSync {
        [[nodiscard]] std::uint32_t serverPort() const override { return 7; }
        [[nodiscard]] platform::NSDictionary JSONParseDictionary(std::string_view) override {
            return {{"type", {std::string("set_menu_usage")}},
                    {"displayBackup", {std::string("1")}}};
        }
    };
    tests::world().listeningPorts.insert(7);
    const auto& started = startConnected<Elsewhere>();
    receive("no JSON at all");
    EXPECT_EQ(started.displayBackup(), 1);
    const auto& all = platform::recording::calls();
    EXPECT_NE(std::ranges::find(all, "CFStreamCreatePairWithSocketToHost: 127.0.0.1 7"), all.end());
}

} // namespace

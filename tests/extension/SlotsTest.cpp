// The object's own calls go through its virtual slots: a subclass that overrides every one of them
// sees them all.

#include "tests/RecordingTest.h"

#include <algorithm>
#include <utility>

using F = findersync::FinderSync;
using platform::NSMenuItem;
using platform::NSStream;
using platform::NSStreamEvent;
using platform::NSURL;
using tests::Strings;

namespace {

/// Notes every call of a slot and passes it on.
class Overriding : public F {
public:
    const URL& myFolderURL() const override { return note(__func__), F::myFolderURL(); }
    void setMyFolderURL(URL url) override { note(__func__), F::setMyFolderURL(std::move(url)); }
    const Strings& pathsOfRootFolders() const override {
        return note(__func__), F::pathsOfRootFolders();
    }
    void setPathsOfRootFolders(Strings paths) override {
        note(__func__), F::setPathsOfRootFolders(std::move(paths));
    }
    std::uint32_t serverPort() const override { return note(__func__), F::serverPort(); }
    void setServerPort(std::uint32_t port) override { note(__func__), F::setServerPort(port); }
    bool isSocketConnected() const override { return note(__func__), F::isSocketConnected(); }
    void setIsSocketConnected(bool isConnected) override {
        note(__func__), F::setIsSocketConnected(isConnected);
    }
    std::int64_t displayUrlLink() const override { return note(__func__), F::displayUrlLink(); }
    void setDisplayUrlLink(std::int64_t value) override {
        note(__func__), F::setDisplayUrlLink(value);
    }
    std::int64_t displayBackup() const override { return note(__func__), F::displayBackup(); }
    void setDisplayBackup(std::int64_t value) override {
        note(__func__), F::setDisplayBackup(value);
    }
    const std::string& shareContactTitle() const override {
        return note(__func__), F::shareContactTitle();
    }
    void setShareContactTitle(std::string title) override {
        note(__func__), F::setShareContactTitle(std::move(title));
    }
    const std::string& shareViaUrlTitle() const override {
        return note(__func__), F::shareViaUrlTitle();
    }
    void setShareViaUrlTitle(std::string title) override {
        note(__func__), F::setShareViaUrlTitle(std::move(title));
    }
    const std::string& backupTitle() const override { return note(__func__), F::backupTitle(); }
    void setBackupTitle(std::string title) override {
        note(__func__), F::setBackupTitle(std::move(title));
    }
    void connect() override { note(__func__), F::connect(); }
    void stream(NSStream& stream, NSStreamEvent event) override {
        note(__func__), F::stream(stream, event);
    }
    F* init() override { return note(__func__), F::init(); }
    void beginObservingDirectoryAtURL(const NSURL& url) override {
        note(__func__), F::beginObservingDirectoryAtURL(url);
    }
    void endObservingDirectoryAtURL(const NSURL& url) override {
        note(__func__), F::endObservingDirectoryAtURL(url);
    }
    std::string errnoDescription() override { return note(__func__), F::errnoDescription(); }
    findersync::AttributesNames attributesNamesAtPath(const std::string& path) override {
        return note(__func__), F::attributesNamesAtPath(path);
    }
    void requestBadgeIdentifierForURL(const NSURL& url) override {
        note(__func__), F::requestBadgeIdentifierForURL(url);
    }
    std::shared_ptr<platform::NSMenu> menuForMenuKind(platform::FIMenuKind kind) override {
        return note(__func__), F::menuForMenuKind(kind);
    }
    std::string JSONStringify(const platform::Object& value, bool isPretty) override {
        return note(__func__), F::JSONStringify(value, isPretty);
    }
    platform::NSDictionary JSONParseDictionary(std::string_view text) override {
        return note(__func__), F::JSONParseDictionary(text);
    }
    void sendClickedData(const std::string& type) override {
        note(__func__), F::sendClickedData(type);
    }
    void createLinkClicked(const NSMenuItem* sender) override {
        note(__func__), F::createLinkClicked(sender);
    }
    void backupClicked(const NSMenuItem* sender) override {
        note(__func__), F::backupClicked(sender);
    }
    void shareContactsClicked(const NSMenuItem* sender) override {
        note(__func__), F::shareContactsClicked(sender);
    }
    void inProgressClicked(const NSMenuItem* sender) override {
        note(__func__), F::inProgressClicked(sender);
    }
    void notSyncedClicked(const NSMenuItem* sender) override {
        note(__func__), F::notSyncedClicked(sender);
    }
    void syncedClicked(const NSMenuItem* sender) override {
        note(__func__), F::syncedClicked(sender);
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
    closeLink();
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
    EXPECT_EQ(started.taken(), (Strings{"requestBadgeIdentifierForURL", "pathsOfRootFolders",
                                        "pathsOfRootFolders", "pathsOfRootFolders"}));

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
    const auto slotsOf = [&started](void (F::*action)(const NSMenuItem*)) {
        (started.*action)(nullptr);
        return started.taken();
    };
    const auto expected = [](const char* action) {
        return Strings{action, "sendClickedData", "JSONStringify"};
    };
    EXPECT_EQ(slotsOf(&F::createLinkClicked), expected("createLinkClicked"));
    EXPECT_EQ(slotsOf(&F::backupClicked), expected("backupClicked"));
    EXPECT_EQ(slotsOf(&F::shareContactsClicked), expected("shareContactsClicked"));
    EXPECT_EQ(slotsOf(&F::inProgressClicked), expected("inProgressClicked"));
    EXPECT_EQ(slotsOf(&F::notSyncedClicked), expected("notSyncedClicked"));
    EXPECT_EQ(slotsOf(&F::syncedClicked), expected("syncedClicked"));
}

TEST_F(Slots, AnOverriddenValueIsTheOneThatIsUsed) {
    class Elsewhere : public F {
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

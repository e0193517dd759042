// The object's own calls go through its virtual slots: a subclass that overrides every one of them
// sees them all.

#include "extension/PublishedInterface.h"
#include "tests/RecordingTest.h"

#include <algorithm>
#include <utility>

using F = findersync::FinderSync;
using platform::FIMenuKind;
using platform::NSMenuItem;
using platform::NSStream;
using platform::NSStreamEvent;
using platform::NSURL;
using platform::Object;
using tests::Strings;

namespace {

/// Overrides a slot with one that notes each call and passes it on.
#define NOTED(Result, slot, parameters, arguments)                                                 \
    Result slot parameters override {                                                              \
        return note(#slot), F::slot arguments;                                                     \
    }

class Overriding : public F {
public:
    NOTED(const URL&, myFolderURL, () const, ())
    NOTED(void, setMyFolderURL, (URL url), (std::move(url)))
    NOTED(const Strings&, pathsOfRootFolders, () const, ())
    NOTED(void, setPathsOfRootFolders, (Strings paths), (std::move(paths)))
    NOTED(std::uint32_t, serverPort, () const, ())
    NOTED(void, setServerPort, (std::uint32_t port), (port))
    NOTED(bool, isSocketConnected, () const, ())
    NOTED(void, setIsSocketConnected, (bool isConnected), (isConnected))
    NOTED(std::int64_t, displayUrlLink, () const, ())
    NOTED(void, setDisplayUrlLink, (std::int64_t value), (value))
    NOTED(std::int64_t, displayBackup, () const, ())
    NOTED(void, setDisplayBackup, (std::int64_t value), (value))
    NOTED(const std::string&, shareContactTitle, () const, ())
    NOTED(void, setShareContactTitle, (std::string title), (std::move(title)))
    NOTED(const std::string&, shareViaUrlTitle, () const, ())
    NOTED(void, setShareViaUrlTitle, (std::string title), (std::move(title)))
    NOTED(const std::string&, backupTitle, () const, ())
    NOTED(void, setBackupTitle, (std::string title), (std::move(title)))
    NOTED(void, connect, (), ())
    NOTED(void, stream, (NSStream & stream, NSStreamEvent event), (stream, event))
    NOTED(F*, init, (), ())
    NOTED(void, beginObservingDirectoryAtURL, (const NSURL& url), (url))
    NOTED(void, endObservingDirectoryAtURL, (const NSURL& url), (url))
    NOTED(std::string, errnoDescription, (), ())
    NOTED(findersync::AttributesNames, attributesNamesAtPath, (const std::string& path), (path))
    NOTED(void, requestBadgeIdentifierForURL, (const NSURL& url), (url))
    NOTED(std::shared_ptr<platform::NSMenu>, menuForMenuKind, (FIMenuKind kind), (kind))
    NOTED(std::string, JSONStringify, (const Object& value, bool isPretty), (value, isPretty))
    NOTED(platform::NSDictionary, JSONParseDictionary, (std::string_view text), (text))
    NOTED(void, sendClickedData, (const std::string& type), (type))
    NOTED(void, createLinkClicked, (const NSMenuItem* sender), (sender))
    NOTED(void, backupClicked, (const NSMenuItem* sender), (sender))
    NOTED(void, shareContactsClicked, (const NSMenuItem* sender), (sender))
    NOTED(void, inProgressClicked, (const NSMenuItem* sender), (sender))
    NOTED(void, notSyncedClicked, (const NSMenuItem* sender), (sender))
    NOTED(void, syncedClicked, (const NSMenuItem* sender), (sender))

    /// The slots called since the last asking, in order.
    Strings taken() { return std::exchange(notes_, {}); }

private:
    void note(const char* slot) const { notes_.emplace_back(slot); }

    mutable Strings notes_;
};
#undef NOTED

/// Gives every published method something that it can be called with.
struct Argument {
    operator const NSURL&() const { return *url; }
    operator NSStream&() const { return *platform::recording::inputStream(); }
    operator NSStreamEvent() const { return {}; }
    operator FIMenuKind() const { return {}; }
    operator const Object&() const { return array; }
    operator bool() const { return true; }
    operator std::string_view() const { return "{}"; }
    operator const std::string&() const { return text; }
    operator const NSMenuItem*() const { return nullptr; }

    std::shared_ptr<const NSURL> url = platform::fileURLWithPath("/a");
    Object array{platform::NSArray()};
    std::string text;
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
    (void)started.menuForMenuKind(FIMenuKind::ContextualMenuForItems);
    EXPECT_EQ(started.taken(),
              (Strings{"menuForMenuKind", "isSocketConnected", "pathsOfRootFolders",
                       "pathsOfRootFolders", "pathsOfRootFolders", "shareContactTitle",
                       "shareViaUrlTitle", "backupTitle", "displayBackup"}));

    tests::script().attributeLists = {{.result = -1, .bytes = {}}};
    (void)started.attributesNamesAtPath("/a");
    EXPECT_EQ(started.taken(), (Strings{"attributesNamesAtPath", "errnoDescription"}));
}

TEST_F(Slots, EachPublishedMethodIsItsSlotAndActionsReportThroughTheirs) {
    auto& started = startConnected<Overriding>();
    tests::script().selection.emplace();
    for (const auto& [selector, method] : findersync::publishedMethods()) {
        started.taken();
        const auto call =
            [&started]<typename Result, typename... Arguments>(Result (F::*slot)(Arguments...)) {
                (void)(started.*slot)(static_cast<Arguments>(Argument())...);
            };
        std::visit(call, method);
        const Strings slots = started.taken();
        const std::string slot(selector.substr(0, selector.find(':')));
        EXPECT_EQ(slots.front(), slot);
        if (std::holds_alternative<findersync::Action>(method)) {
            EXPECT_EQ(slots, (Strings{slot, "sendClickedData", "JSONStringify"}));
        }
    }
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

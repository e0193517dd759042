#include "extension/PublishedInterface.h"

#include "tests/RecordingTest.h"

using findersync::FinderSync;
using findersync::publishedMethod;
using findersync::publishedMethods;
using findersync::publishedProperties;
using findersync::publishedProperty;
using tests::Strings;

namespace {

class PublishedInterface : public tests::RecordingTest {};

TEST_F(PublishedInterface, PropertiesStandInTheOrderOfTheFields) {
    Strings names;
    for (const auto& property : publishedProperties())
        names.emplace_back(property.name);
    EXPECT_EQ(names, (Strings{"myFolderURL", "pathsOfRootFolders", "serverAddress", "serverPort",
                              "isSocketConnected", "displayUrlLink", "displayBackup",
                              "shareContactTitle", "shareViaUrlTitle", "backupTitle"}));
}

TEST_F(PublishedInterface, AccessorSelectorsFollowThePlatformsNaming) {
    EXPECT_EQ(publishedProperty("serverPort")->setterSelector(), "setServerPort:");
    EXPECT_EQ(publishedProperty("isSocketConnected")->setterSelector(), "setIsSocketConnected:");
    EXPECT_EQ(publishedProperty("serverAddress")->setterSelector(), "");
}

TEST_F(PublishedInterface, MethodsStandInSlotOrder) {
    Strings selectors;
    for (const auto& method : publishedMethods())
        selectors.emplace_back(method.selector);
    EXPECT_EQ(selectors,
              (Strings{"connect", "stream:handleEvent:", "errnoDescription", "init",
                       "beginObservingDirectoryAtURL:", "endObservingDirectoryAtURL:",
                       "requestBadgeIdentifierForURL:", "menuForMenuKind:",
                       "JSONStringify:prettyPrinted:", "JSONParseDictionary:", "sendClickedData:",
                       "createLinkClicked:", "backupClicked:", "shareContactsClicked:",
                       "inProgressClicked:", "notSyncedClicked:", "syncedClicked:"}));
}

TEST_F(PublishedInterface, UnknownNamesGiveNone) {
    EXPECT_EQ(publishedProperty("inputStream"), nullptr);
    EXPECT_EQ(publishedProperty("outputStream"), nullptr);
    EXPECT_EQ(publishedMethod("attributesNamesAtPath:"), nullptr);
    EXPECT_EQ(publishedMethod("readInboundMessages"), nullptr);
}

TEST_F(PublishedInterface, MethodsAreReachedBySelector) {
    auto& object = start();
    firstCall = platform::recording::calls().size();
    (object.*std::get<findersync::PlainOperation>(publishedMethod("connect")->method))();
    EXPECT_EQ(trace(), "connecting...\n");

    const auto parse =
        std::get<findersync::DictionaryParser>(publishedMethod("JSONParseDictionary:")->method);
    EXPECT_TRUE((object.*parse)("{\"type\":\"x\"}").contains("type"));

    const auto url = platform::fileURLWithPath("/a");
    for (const char* selector : {"beginObservingDirectoryAtURL:", "endObservingDirectoryAtURL:"})
        (object.*std::get<findersync::URLCallback>(publishedMethod(selector)->method))(*url);
    EXPECT_EQ(calls("NSLog: "), (Strings{"beginObservingDirectoryAtURL: %@ <- file:///a",
                                         "endObservingDirectoryAtURL: %@ <- file:///a"}));

    const auto handleEvent =
        std::get<findersync::StreamEventHandler>(publishedMethod("stream:handleEvent:")->method);
    (object.*handleEvent)(*platform::recording::inputStream(),
                          platform::NSStreamEvent::EndEncountered);
    EXPECT_FALSE(object.isSocketConnected());

    tests::script().errorText = "in words";
    const auto describe =
        std::get<findersync::Description>(publishedMethod("errnoDescription")->method);
    EXPECT_EQ((object.*describe)(), "in words");

    const auto stringify =
        std::get<findersync::JSONWriter>(publishedMethod("JSONStringify:prettyPrinted:")->method);
    EXPECT_EQ((object.*stringify)({platform::NSArray()}, true), "[]");

    tests::script().selection = {url};
    const auto report =
        std::get<findersync::ReportSender>(publishedMethod("sendClickedData:")->method);
    platform::recording::runAll();
    (object.*report)("t");
    EXPECT_EQ(tests::world().received, R"({"items":["/a"],"type":"t"})");

    object.setIsSocketConnected(true);
    object.setPathsOfRootFolders({"/a"});
    (object.*std::get<findersync::URLCallback>(
                 publishedMethod("requestBadgeIdentifierForURL:")->method))(*url);
    EXPECT_EQ(tests::world().assignments.size(), 1U);
    tests::script().selection = {platform::fileURLWithPath("/a/x")};
    const auto provide =
        std::get<findersync::MenuProvider>(publishedMethod("menuForMenuKind:")->method);
    EXPECT_TRUE((object.*provide)(platform::FIMenuKind::ContextualMenuForItems));

    FinderSync another;
    EXPECT_EQ((another.*std::get<findersync::Initializer>(publishedMethod("init")->method))(),
              &another);
}

} // namespace

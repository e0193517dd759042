#include "extension/PublishedInterface.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using findersync::publishedMethod;
using findersync::publishedMethods;
using findersync::publishedProperties;
using findersync::publishedProperty;

namespace {

using Strings = std::vector<std::string>;

TEST(PublishedInterface, PropertiesStandInTheOrderOfTheFields) {
    Strings names;
    for (const auto& property : publishedProperties())
        names.emplace_back(property.name);
    EXPECT_EQ(names, (Strings{"myFolderURL", "pathsOfRootFolders", "serverAddress", "serverPort",
                              "isSocketConnected", "displayUrlLink", "displayBackup",
                              "shareContactTitle", "shareViaUrlTitle", "backupTitle"}));
}

TEST(PublishedInterface, AccessorSelectorsFollowThePlatformsNaming) {
    EXPECT_EQ(publishedProperty("serverPort")->setterSelector(), "setServerPort:");
    EXPECT_EQ(publishedProperty("isSocketConnected")->setterSelector(), "setIsSocketConnected:");
    EXPECT_EQ(publishedProperty("serverAddress")->setterSelector(), "");
}

TEST(PublishedInterface, MethodsStandInSlotOrder) {
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

TEST(PublishedInterface, UnknownNamesGiveNone) {
    EXPECT_EQ(publishedProperty("inputStream"), nullptr);
    EXPECT_EQ(publishedProperty("outputStream"), nullptr);
    EXPECT_EQ(publishedMethod("attributesNamesAtPath:"), nullptr);
    EXPECT_EQ(publishedMethod("readInboundMessages"), nullptr);
}

} // namespace

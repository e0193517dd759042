#include "extension/PublishedInterface.h"

#include <algorithm>

namespace findersync {

namespace {

using F = FinderSync;

const PublishedProperty properties[] = {
    {"myFolderURL", URLProperty{&F::myFolderURL, &F::setMyFolderURL}},
    {"pathsOfRootFolders", StringListProperty{&F::pathsOfRootFolders, &F::setPathsOfRootFolders}},
    {"serverAddress", StringProperty{&F::serverAddress, nullptr}},
    {"serverPort", PortProperty{&F::serverPort, &F::setServerPort}},
    {"isSocketConnected", BooleanProperty{&F::isSocketConnected, &F::setIsSocketConnected}},
    {"displayUrlLink", IntegerProperty{&F::displayUrlLink, &F::setDisplayUrlLink}},
    {"displayBackup", IntegerProperty{&F::displayBackup, &F::setDisplayBackup}},
    {"shareContactTitle", StringProperty{&F::shareContactTitle, &F::setShareContactTitle}},
    {"shareViaUrlTitle", StringProperty{&F::shareViaUrlTitle, &F::setShareViaUrlTitle}},
    {"backupTitle", StringProperty{&F::backupTitle, &F::setBackupTitle}},
};

const PublishedMethod methods[] = {
    {"connect", PlainOperation{&F::connect}},
    {"stream:handleEvent:", StreamEventHandler{&F::stream}},
    {"errnoDescription", Description{&F::errnoDescription}},
    {"init", Initializer{&F::init}},
    {"beginObservingDirectoryAtURL:", URLCallback{&F::beginObservingDirectoryAtURL}},
    {"endObservingDirectoryAtURL:", URLCallback{&F::endObservingDirectoryAtURL}},
    {"requestBadgeIdentifierForURL:", URLCallback{&F::requestBadgeIdentifierForURL}},
    {"menuForMenuKind:", MenuProvider{&F::menuForMenuKind}},
    {"JSONStringify:prettyPrinted:", JSONWriter{&F::JSONStringify}},
    {"JSONParseDictionary:", DictionaryParser{&F::JSONParseDictionary}},
    {"sendClickedData:", ReportSender{&F::sendClickedData}},
    {"createLinkClicked:", Action{&F::createLinkClicked}},
    {"backupClicked:", Action{&F::backupClicked}},
    {"shareContactsClicked:", Action{&F::shareContactsClicked}},
    {"inProgressClicked:", Action{&F::inProgressClicked}},
    {"notSyncedClicked:", Action{&F::notSyncedClicked}},
    {"syncedClicked:", Action{&F::syncedClicked}},
};

} // namespace

bool PublishedProperty::isWritable() const {
    return std::visit([](const auto& property) { return property.set != nullptr; }, accessors);
}

std::string PublishedProperty::setterSelector() const {
    if (!isWritable())
        return {};
    std::string selector = "set" + std::string(name) + ":";
    selector[3] = static_cast<char>(selector[3] - 'a' + 'A'); // every property starts in lower case
    return selector;
}

std::span<const PublishedProperty> publishedProperties() {
    return properties;
}

std::span<const PublishedMethod> publishedMethods() {
    return methods;
}

const PublishedProperty* publishedProperty(std::string_view name) {
    const auto* const found = std::ranges::find(properties, name, &PublishedProperty::name);
    return found == std::end(properties) ? nullptr : found;
}

const PublishedMethod* publishedMethod(std::string_view selector) {
    const auto* const found = std::ranges::find(methods, selector, &PublishedMethod::selector);
    return found == std::end(methods) ? nullptr : found;
}

} // namespace findersync

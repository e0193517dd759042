#include "extension/FinderSync.h"

#include "Names.h"
#include "extension/URLParts.h"
#include "platform/AppKit.h"
#include "platform/System.h"

#include <limits>
#include <optional>
#include <type_traits>
#include <utility>

namespace findersync {

namespace {

constexpr std::int64_t defaultPort = 61842;

/// Returns the string stored under a key, or none when the key is absent. A value of another type
/// is fatal.
std::optional<std::string> stringForKey(const platform::NSUserDefaults& settings,
                                        std::string_view key) {
    const std::optional<platform::Object> object = settings.objectForKey(key);
    if (!object)
        return std::nullopt;
    const std::string* string = object->string();
    if (string == nullptr)
        platform::fatalError("the setting \"" + std::string(key) + "\" is not a string");
    return *string;
}

std::optional<std::int64_t> integerForKey(const platform::NSUserDefaults& settings,
                                          std::string_view key) {
    if (!settings.objectForKey(key))
        return std::nullopt;
    return settings.integerForKey(key);
}

std::uint32_t narrowedPort(std::int64_t port) {
    if (port < 0 || port > std::numeric_limits<std::uint32_t>::max())
        platform::fatalError("the setting \"ServerPort\" is out of range: " + std::to_string(port));
    return static_cast<std::uint32_t>(port);
}

void registerBadge() {
    auto image = platform::imageNamed("icon_Folder");
    if (!image)
        platform::fatalError("the image \"icon_Folder\" is missing from the resources");
    platform::defaultController().setBadgeImage(std::move(image), "Folder Icon", "FolderIco");
}

} // namespace

FinderSync::~FinderSync() {
    // By default, members are destroyed in reverse order of declaration.
    const auto release = [](auto& field) {
        std::remove_reference_t<decltype(field)>().swap(field);
    };
    release(myFolderURL_);
    release(pathsOfRootFolders_);
    release(serverAddress_);
    release(shareContactTitle_);
    release(shareViaUrlTitle_);
    release(backupTitle_);
    release(inputStream_);
    release(outputStream_);
}

FinderSync* FinderSync::init() {
    if (FIFinderSync::init() == nullptr)
        return nullptr;
    readSettings();
    platform::NSLog("FinderSync() launched from %@", platform::mainBundlePath());
    platform::defaultController().setDirectoryURLs({myFolderURL()});
    registerBadge();
    connect();
    return this;
}

void FinderSync::readSettings() {
    std::string failure;
    const auto suite = platform::userDefaultsWithSuiteName(applicationGroup, failure);
    if (!suite)
        platform::fatalError("the shared settings cannot be opened" +
                             (failure.empty() ? failure : ": " + failure));

    const platform::NSUserDefaults& settings = *suite;
    const std::string rootPath = stringForKey(settings, "RootFolder").value_or("/");
    const std::int64_t port = integerForKey(settings, "ServerPort").value_or(defaultPort);
    if (const auto value = integerForKey(settings, "DisplayUrlLink"))
        setDisplayUrlLink(*value);
    if (const auto value = integerForKey(settings, "DisplayBackup"))
        setDisplayBackup(*value);
    if (auto value = stringForKey(settings, "ShareContactTitle"))
        setShareContactTitle(*std::move(value));
    if (auto value = stringForKey(settings, "ShareViaUrlTitle"))
        setShareViaUrlTitle(*std::move(value));
    if (auto value = stringForKey(settings, "BackupTitle"))
        setBackupTitle(*std::move(value));

    setMyFolderURL(platform::fileURLWithPath(rootPath));
    setServerPort(narrowedPort(port));
}

void FinderSync::beginObservingDirectoryAtURL(const platform::NSURL& url) {
    platform::NSLog("beginObservingDirectoryAtURL: %@", filePathDescription(url));
}

void FinderSync::endObservingDirectoryAtURL(const platform::NSURL& url) {
    platform::NSLog("endObservingDirectoryAtURL: %@", filePathDescription(url));
}

// Accessors. They have no side effects.

const FinderSync::URL& FinderSync::myFolderURL() const {
    return myFolderURL_;
}

void FinderSync::setMyFolderURL(URL url) {
    myFolderURL_ = std::move(url);
}

const std::vector<std::string>& FinderSync::pathsOfRootFolders() const {
    return pathsOfRootFolders_;
}

void FinderSync::setPathsOfRootFolders(std::vector<std::string> paths) {
    pathsOfRootFolders_ = std::move(paths);
}

std::uint32_t FinderSync::serverPort() const {
    return serverPort_;
}

void FinderSync::setServerPort(std::uint32_t port) {
    serverPort_ = port;
}

bool FinderSync::isSocketConnected() const {
    return isSocketConnected_;
}

void FinderSync::setIsSocketConnected(bool isConnected) {
    isSocketConnected_ = isConnected;
}

std::int64_t FinderSync::displayUrlLink() const {
    return displayUrlLink_;
}

void FinderSync::setDisplayUrlLink(std::int64_t value) {
    displayUrlLink_ = value;
}

std::int64_t FinderSync::displayBackup() const {
    return displayBackup_;
}

void FinderSync::setDisplayBackup(std::int64_t value) {
    displayBackup_ = value;
}

const std::string& FinderSync::shareContactTitle() const {
    return shareContactTitle_;
}

void FinderSync::setShareContactTitle(std::string title) {
    shareContactTitle_ = std::move(title);
}

const std::string& FinderSync::shareViaUrlTitle() const {
    return shareViaUrlTitle_;
}

void FinderSync::setShareViaUrlTitle(std::string title) {
    shareViaUrlTitle_ = std::move(title);
}

const std::string& FinderSync::backupTitle() const {
    return backupTitle_;
}

void FinderSync::setBackupTitle(std::string title) {
    backupTitle_ = std::move(title);
}

} // namespace findersync

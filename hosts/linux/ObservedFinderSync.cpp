#include "hosts/linux/ObservedFinderSync.h"

namespace hosts::linux_host {

void ObservedFinderSync::setMyFolderURL(URL url) {
    compare("myFolderURL", myFolderURL()->description(), url->description());
    FinderSync::setMyFolderURL(std::move(url));
}

void ObservedFinderSync::setPathsOfRootFolders(std::vector<std::string> paths) {
    compare("pathsOfRootFolders", pathsOfRootFolders(), paths);
    if (rootFoldersObserver_)
        rootFoldersObserver_(pathsOfRootFolders(), paths);
    FinderSync::setPathsOfRootFolders(std::move(paths));
}

void ObservedFinderSync::setServerPort(std::uint32_t port) {
    compare("serverPort", serverPort(), port);
    FinderSync::setServerPort(port);
}

void ObservedFinderSync::setIsSocketConnected(bool isConnected) {
    compare("isSocketConnected", isSocketConnected(), isConnected);
    FinderSync::setIsSocketConnected(isConnected);
}

void ObservedFinderSync::setDisplayUrlLink(std::int64_t value) {
    compare("displayUrlLink", displayUrlLink(), value);
    FinderSync::setDisplayUrlLink(value);
}

void ObservedFinderSync::setDisplayBackup(std::int64_t value) {
    compare("displayBackup", displayBackup(), value);
    FinderSync::setDisplayBackup(value);
}

void ObservedFinderSync::setShareContactTitle(std::string title) {
    compare("shareContactTitle", shareContactTitle(), title);
    FinderSync::setShareContactTitle(std::move(title));
}

void ObservedFinderSync::setShareViaUrlTitle(std::string title) {
    compare("shareViaUrlTitle", shareViaUrlTitle(), title);
    FinderSync::setShareViaUrlTitle(std::move(title));
}

void ObservedFinderSync::setBackupTitle(std::string title) {
    compare("backupTitle", backupTitle(), title);
    FinderSync::setBackupTitle(std::move(title));
}

void ObservedFinderSync::connect() {
    setLinkState(LinkState::Connecting);
    FinderSync::connect();
}

void ObservedFinderSync::stream(platform::NSStream& stream, platform::NSStreamEvent event) {
    FinderSync::stream(stream, event);
    // Both streams report, one after the other.
    if (event == platform::NSStreamEvent::OpenCompleted && linkState_ == LinkState::Connecting)
        setLinkState(LinkState::Open);
    else if (event == platform::NSStreamEvent::ErrorOccurred)
        setLinkState(linkState_ == LinkState::Connecting || linkState_ == LinkState::Refused
                         ? LinkState::Refused
                         : LinkState::Ended);
    else if (event == platform::NSStreamEvent::EndEncountered)
        setLinkState(LinkState::Ended);
}

void ObservedFinderSync::setLinkState(LinkState state) {
    if (std::exchange(linkState_, state) != state && linkObserver_)
        linkObserver_();
}

} // namespace hosts::linux_host

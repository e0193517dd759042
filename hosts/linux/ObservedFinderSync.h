#pragma once

#include "extension/FinderSync.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hosts::linux_host {

/// The connection to the companion, as the streams have reported it. `isSocketConnected` stays true
/// when the connection is refused, so it does not tell.
enum class LinkState { NeverTried, Connecting, Open, Refused, Ended };

/// A FinderSync that reports when one of its published properties or the state of its link changes:
/// key-value observing for a platform that has none.
class ObservedFinderSync : public findersync::FinderSync {
public:
    /// Called with the property's name, before the new value is set.
    using Observer = std::function<void(std::string_view property)>;

    /// Replaces the observer; there is none at first.
    void setObserver(Observer observer) { observer_ = std::move(observer); }

    /// Called with the paths of the root folders and with those that replace them.
    using RootFoldersObserver = std::function<void(const std::vector<std::string>& current,
                                                   const std::vector<std::string>& next)>;

    /// Replaces this observer; there is none at first.
    void setRootFoldersObserver(RootFoldersObserver observer) {
        rootFoldersObserver_ = std::move(observer);
    }

    [[nodiscard]] LinkState linkState() const { return linkState_; }

    /// Replaces what is called after each change of the link's state; there is nothing at first.
    void setLinkObserver(std::function<void()> observer) { linkObserver_ = std::move(observer); }

    void connect() override;
    void stream(platform::NSStream& stream, platform::NSStreamEvent event) override;

    void setMyFolderURL(URL url) override;
    void setPathsOfRootFolders(std::vector<std::string> paths) override;
    void setServerPort(std::uint32_t port) override;
    void setIsSocketConnected(bool isConnected) override;
    void setDisplayUrlLink(std::int64_t value) override;
    void setDisplayBackup(std::int64_t value) override;
    void setShareContactTitle(std::string title) override;
    void setShareViaUrlTitle(std::string title) override;
    void setBackupTitle(std::string title) override;

private:
    template <typename Value>
    void compare(std::string_view property, const Value& current, const Value& next) const {
        if (observer_ && current != next)
            observer_(property);
    }

    void setLinkState(LinkState state);

    Observer observer_;
    RootFoldersObserver rootFoldersObserver_;
    LinkState linkState_ = LinkState::NeverTried;
    std::function<void()> linkObserver_;
};

} // namespace hosts::linux_host

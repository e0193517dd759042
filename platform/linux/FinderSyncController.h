#pragma once

#include "platform/FinderSync.h"
#include "platform/linux/Image.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform::linux_backend {

/// Stores what the extension tells the Finder, for the host to pass on.
class FinderSyncController : public FIFinderSyncController {
public:
    struct Badge {
        std::shared_ptr<const NSImage> image;
        std::string label;
    };

    void setDirectoryURLs(const std::vector<std::shared_ptr<const NSURL>>& urls) override;
    void setBadgeImage(std::shared_ptr<const NSImage> image, std::string_view label,
                       std::string_view badgeIdentifier) override;
    void setBadgeIdentifier(std::string_view badgeIdentifier, const NSURL& url) override;
    [[nodiscard]] std::optional<std::vector<std::shared_ptr<const NSURL>>>
    selectedItemURLs() const override {
        return selection_;
    }

    /// Sets the selection for the duration of one menu request or action of the host.
    void setSelectedItemURLs(std::optional<std::vector<std::shared_ptr<const NSURL>>> selection) {
        selection_ = std::move(selection);
    }

    /// The watched directories, each once.
    [[nodiscard]] const std::vector<std::shared_ptr<const NSURL>>& directoryURLs() const {
        return directoryURLs_;
    }

    /// The registered badges by their identifiers.
    [[nodiscard]] const std::map<std::string, Badge>& badges() const { return badges_; }

    /// The badge assigned since the last call, empty for none.
    [[nodiscard]] std::string takeAssignedBadge() { return std::exchange(assignedBadge_, {}); }

private:
    std::vector<std::shared_ptr<const NSURL>> directoryURLs_;
    std::map<std::string, Badge> badges_;
    std::string assignedBadge_;
    std::optional<std::vector<std::shared_ptr<const NSURL>>> selection_;
};

/// The object behind `platform::defaultController()`.
[[nodiscard]] FinderSyncController& finderSyncController();

} // namespace platform::linux_backend

#pragma once

#include "platform/FinderSync.h"
#include "platform/linux/Bundle.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace platform::linux_backend {

/// Keeps what the extension tells the Finder, for the process's host to hand on.
class FinderSyncController : public FIFinderSyncController {
public:
    struct Badge {
        std::shared_ptr<const NSImage> image;
        std::string label;
    };

    void setDirectoryURLs(const std::vector<std::shared_ptr<const NSURL>>& urls) override;
    void setBadgeImage(std::shared_ptr<const NSImage> image, std::string_view label,
                       std::string_view badgeIdentifier) override;

    /// The watched directories, each once.
    [[nodiscard]] const std::vector<std::shared_ptr<const NSURL>>& directoryURLs() const {
        return directoryURLs_;
    }

    /// The registered badges by their identifiers.
    [[nodiscard]] const std::map<std::string, Badge>& badges() const { return badges_; }

private:
    std::vector<std::shared_ptr<const NSURL>> directoryURLs_;
    std::map<std::string, Badge> badges_;
};

/// The object behind `platform::defaultController()`.
[[nodiscard]] FinderSyncController& finderSyncController();

} // namespace platform::linux_backend

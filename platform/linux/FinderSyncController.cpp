#include "platform/linux/FinderSyncController.h"

#include <algorithm>
#include <utility>

namespace platform {

namespace linux_backend {

void FinderSyncController::setDirectoryURLs(const std::vector<std::shared_ptr<const NSURL>>& urls) {
    directoryURLs_.clear();
    for (const auto& url : urls) {
        const bool isKnown = std::ranges::any_of(directoryURLs_, [&url](const auto& known) {
            return known->description() == url->description();
        });
        if (!isKnown)
            directoryURLs_.push_back(url);
    }
}

void FinderSyncController::setBadgeImage(std::shared_ptr<const NSImage> image,
                                         std::string_view label, std::string_view badgeIdentifier) {
    badges_.insert_or_assign(std::string(badgeIdentifier),
                             Badge{.image = std::move(image), .label = std::string(label)});
}

/// Requests are answered one at a time, so the badge belongs to the item of the current request.
void FinderSyncController::setBadgeIdentifier(std::string_view badgeIdentifier, const NSURL&) {
    assignedBadge_ = badgeIdentifier;
}

FinderSyncController& finderSyncController() {
    static FinderSyncController controller;
    return controller;
}

} // namespace linux_backend

FIFinderSync* FIFinderSync::init() {
    return this; // cannot fail on this platform
}

FIFinderSyncController& defaultController() {
    return linux_backend::finderSyncController();
}

} // namespace platform

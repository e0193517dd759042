#include "platform/recording/Recording.h"

#include <algorithm>
#include <utility>

namespace platform {

namespace {

class RecordedController : public FIFinderSyncController {
public:
    void setDirectoryURLs(const std::vector<std::shared_ptr<const NSURL>>& urls) override {
        std::string call = "setDirectoryURLs:";
        std::vector<std::shared_ptr<const NSURL>> set;
        for (const auto& url : urls) {
            call += " " + url->description();
            const bool isKnown = std::ranges::any_of(set, [&url](const auto& known) {
                return known->description() == url->description();
            });
            if (!isKnown)
                set.push_back(url);
        }
        recording::record(std::move(call));
        recording::world().directoryURLs = std::move(set);
    }

    void setBadgeImage(std::shared_ptr<const NSImage> image, std::string_view label,
                       std::string_view badgeIdentifier) override {
        recording::record("setBadgeImage:label:forBadgeIdentifier: " + std::string(label) + ", " +
                          std::string(badgeIdentifier));
        recording::world().badges.insert_or_assign(
            std::string(badgeIdentifier),
            recording::World::Badge{.image = std::move(image), .label = std::string(label)});
    }

    void setBadgeIdentifier(std::string_view badgeIdentifier, const NSURL& url) override {
        recording::record("setBadgeIdentifier:forURL: " + std::string(badgeIdentifier) + " " +
                          url.description());
        recording::world().assignments.push_back(
            {.identifier = std::string(badgeIdentifier), .url = &url});
    }

    [[nodiscard]] std::optional<std::vector<std::shared_ptr<const NSURL>>>
    selectedItemURLs() const override {
        recording::record("selectedItemURLs");
        return recording::script().selection;
    }
};

} // namespace

FIFinderSync* FIFinderSync::init() {
    recording::record("FIFinderSync init");
    return recording::script().baseObject ? this : nullptr;
}

FIFinderSyncController& defaultController() {
    static RecordedController controller;
    recording::record("defaultController");
    return controller;
}

} // namespace platform

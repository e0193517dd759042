#include "platform/FinderSync.h"
#include "platform/macos/Image.h"
#include "platform/macos/Strings.h"
#include "platform/macos/URL.h"

#import <FinderSync/FinderSync.h>

namespace platform {

namespace {

/// Forwards to the framework's controller.
class Controller : public FIFinderSyncController {
public:
    void setDirectoryURLs(const std::vector<std::shared_ptr<const NSURL>>& urls) override {
        const auto set = macos::adopt([[::NSMutableSet alloc] initWithCapacity:urls.size()]);
        for (const auto& url : urls)
            [set.get() addObject:macos::urlObject(*url)];
        [[::FIFinderSyncController defaultController] setDirectoryURLs:set.get()];
    }

    void setBadgeImage(std::shared_ptr<const NSImage> image, std::string_view label,
                       std::string_view badgeIdentifier) override {
        const auto labelObject = macos::stringObject(label);
        const auto identifier = macos::stringObject(badgeIdentifier);
        [[::FIFinderSyncController defaultController] setBadgeImage:macos::imageObject(image.get())
                                                              label:labelObject.get()
                                                 forBadgeIdentifier:identifier.get()];
    }

    void setBadgeIdentifier(std::string_view badgeIdentifier, const NSURL& url) override {
        const auto identifier = macos::stringObject(badgeIdentifier);
        [[::FIFinderSyncController defaultController] setBadgeIdentifier:identifier.get()
                                                                  forURL:macos::urlObject(url)];
    }

    [[nodiscard]] std::optional<std::vector<std::shared_ptr<const NSURL>>>
    selectedItemURLs() const override {
        @autoreleasepool {
            ::NSArray* const selection =
                [[::FIFinderSyncController defaultController] selectedItemURLs];
            if (selection == nil)
                return std::nullopt;
            std::vector<std::shared_ptr<const NSURL>> urls;
            for (::NSURL* url in selection)
                urls.push_back(std::make_shared<macos::URL>(url));
            return urls;
        }
    }
};

} // namespace

/// The principal class has called the framework's initializer before.
FIFinderSync* FIFinderSync::init() {
    return this;
}

FIFinderSyncController& defaultController() {
    static Controller controller;
    return controller;
}

} // namespace platform

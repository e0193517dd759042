// The Finder, images, standard output and the end of the process.

#include "platform/recording/Recording.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace platform {

namespace {

class RecordedImage : public NSImage {};

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

std::shared_ptr<const NSImage> imageNamed(std::string_view name) {
    recording::record("imageNamed: " + std::string(name));
    if (!recording::script().images.contains(name))
        return nullptr;
    return std::make_shared<RecordedImage>();
}

void print(std::string_view line) {
    recording::record("print: " + std::string(line));
}

void* malloc(std::size_t size) {
    recording::record("malloc: " + std::to_string(size));
    return recording::script().memory ? std::malloc(size) : nullptr;
}

void fatalError(std::string_view reason) {
    // Death tests see what was printed before the end as well as the reason.
    for (const std::string& call : recording::calls()) {
        if (call.starts_with("print: "))
            (void)std::fprintf(stderr, "%s\n", call.c_str());
    }
    std::string line(reason);
    std::ranges::replace(line, '\n', ' ');
    (void)std::fprintf(stderr, "fatal error: %s\n", line.c_str());
    std::abort();
}

} // namespace platform

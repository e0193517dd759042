// The Finder, images, standard output and the end of the process.

#include "platform/recording/Recording.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace platform {

namespace {

class RecordedImage : public NSImage {
public:
    explicit RecordedImage(std::string_view name) : name_(name) {}
    [[nodiscard]] const std::string& name() const { return name_; }

private:
    std::string name_;
};

class RecordedItem : public NSMenuItem {
public:
    explicit RecordedItem(recording::MenuItem content) : content_(std::move(content)) {}
    ~RecordedItem() override { recording::record("NSMenuItem released: " + content_.action); }
    RecordedItem(const RecordedItem&) = delete;
    RecordedItem& operator=(const RecordedItem&) = delete;

    void setImage(std::shared_ptr<const NSImage> image) override {
        content_.image = image ? static_cast<const RecordedImage&>(*image).name() : "";
        recording::record("setImage: " + content_.action + " " + content_.image);
    }
    [[nodiscard]] const recording::MenuItem& content() const { return content_; }

private:
    recording::MenuItem content_;
};

class RecordedMenu : public NSMenu {
public:
    void addItem(std::shared_ptr<NSMenuItem> item) override {
        recording::record("addItem: " + static_cast<RecordedItem&>(*item).content().action);
        items_.push_back(std::move(item));
    }
    [[nodiscard]] const std::vector<std::shared_ptr<NSMenuItem>>& items() const { return items_; }

private:
    std::vector<std::shared_ptr<NSMenuItem>> items_;
};

int lastErrorNumber = 0; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): as errno is

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

std::shared_ptr<const NSImage> imageNamed(std::string_view name) {
    recording::record("imageNamed: " + std::string(name));
    if (!recording::script().images.contains(name))
        return nullptr;
    return std::make_shared<RecordedImage>(name);
}

std::shared_ptr<NSMenuItem> menuItemWithTitle(const std::string& title, std::string_view action,
                                              std::string_view keyEquivalent) {
    recording::record("initWithTitle:action:keyEquivalent: " + title + ", " + std::string(action) +
                      ", " + std::string(keyEquivalent));
    return std::make_shared<RecordedItem>(
        recording::MenuItem{.title = title,
                            .action = std::string(action),
                            .keyEquivalent = std::string(keyEquivalent),
                            .image = {}});
}

std::shared_ptr<NSMenu> menuWithTitle(std::string_view title) {
    recording::record("NSMenu initWithTitle: " + std::string(title));
    return std::make_shared<RecordedMenu>();
}

namespace recording {

std::vector<MenuItem> itemsOf(const NSMenu& menu) {
    std::vector<MenuItem> contents;
    for (const auto& item : static_cast<const RecordedMenu&>(menu).items())
        contents.push_back(static_cast<const RecordedItem&>(*item).content());
    return contents;
}

} // namespace recording

std::int64_t listxattr(const std::string& path, char* buffer, std::size_t size) {
    recording::AttributeList outcome;
    std::deque<recording::AttributeList>& lists = recording::script().attributeLists;
    if (!lists.empty()) {
        outcome = std::move(lists.front());
        lists.pop_front();
    }
    recording::record("listxattr: " + path + " " + (buffer == nullptr ? "null" : "buffer") + " " +
                      std::to_string(size) + " -> " + std::to_string(outcome.result));
    if (buffer != nullptr)
        std::copy_n(outcome.bytes.data(), std::min(size, outcome.bytes.size()), buffer);
    lastErrorNumber = outcome.errorNumber;
    return outcome.result;
}

int errorNumber() {
    recording::record("errno");
    return lastErrorNumber;
}

const char* strerror(int number) {
    recording::record("strerror: " + std::to_string(number));
    return recording::script().errorText.c_str();
}

void print(std::string_view text, std::string_view value) {
    recording::record("print: " + std::string(text) + std::string(value));
}

void* malloc(std::size_t size) {
    recording::record("malloc: " + std::to_string(size));
    if (!recording::script().memory)
        return nullptr;
    recording::world().buffers.push_back(std::malloc(size));
    return recording::world().buffers.back();
}

} // namespace platform

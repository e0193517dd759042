#include "platform/recording/Image.h"
#include "platform/recording/Recording.h"

#include <utility>

namespace platform {

namespace {

class RecordedItem : public NSMenuItem {
public:
    explicit RecordedItem(recording::MenuItem content) : content_(std::move(content)) {}
    ~RecordedItem() override { recording::record("NSMenuItem released: " + content_.action); }
    RecordedItem(const RecordedItem&) = delete;
    RecordedItem& operator=(const RecordedItem&) = delete;

    void setImage(std::shared_ptr<const NSImage> image) override {
        content_.image = image ? static_cast<const recording::RecordedImage&>(*image).name() : "";
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

} // namespace

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

} // namespace platform

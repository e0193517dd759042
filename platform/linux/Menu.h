#pragma once

#include "platform/AppKit.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::linux_backend {

/// An entry that the host passes on to the file manager.
class MenuItem : public NSMenuItem {
public:
    MenuItem(std::string title, std::string_view action)
        : title_(std::move(title)), action_(action) {}

    void setImage(std::shared_ptr<const NSImage> image) override { image_ = std::move(image); }

    [[nodiscard]] const std::string& title() const { return title_; }
    /// The selector of the action.
    [[nodiscard]] const std::string& action() const { return action_; }
    /// Name of the image, empty for none.
    [[nodiscard]] std::string imageName() const;

private:
    std::string title_;
    std::string action_;
    std::shared_ptr<const NSImage> image_;
};

/// A menu that the host passes on. File managers show its entries among their own, so it has no
/// title.
class Menu : public NSMenu {
public:
    void addItem(std::shared_ptr<NSMenuItem> item) override { items_.push_back(std::move(item)); }

    [[nodiscard]] const std::vector<std::shared_ptr<NSMenuItem>>& items() const { return items_; }

private:
    std::vector<std::shared_ptr<NSMenuItem>> items_;
};

} // namespace platform::linux_backend

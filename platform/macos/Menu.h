#pragma once

#include "platform/AppKit.h"
#include "platform/macos/Reference.h"

#import <AppKit/AppKit.h>
#include <utility>

namespace platform::macos {

/// Wraps an AppKit menu item.
class MenuItem : public NSMenuItem {
public:
    explicit MenuItem(Reference<::NSMenuItem*> item) : item_(std::move(item)) {}

    void setImage(std::shared_ptr<const NSImage> image) override;

    /// Never nil.
    [[nodiscard]] ::NSMenuItem* object() const { return item_.get(); }

private:
    Reference<::NSMenuItem*> item_;
};

/// Wraps an AppKit menu.
class Menu : public NSMenu {
public:
    explicit Menu(Reference<::NSMenu*> menu) : menu_(std::move(menu)) {}

    void addItem(std::shared_ptr<NSMenuItem> item) override;

    /// Never nil.
    [[nodiscard]] ::NSMenu* object() const { return menu_.get(); }

private:
    Reference<::NSMenu*> menu_;
};

/// The AppKit menu in `menu`, which this back end has made. Autoreleased.
[[nodiscard]] inline ::NSMenu* menuObject(const NSMenu& menu) {
    return retain(static_cast<const Menu&>(menu).object()).autoreleased();
}

} // namespace platform::macos

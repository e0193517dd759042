#pragma once

#include "platform/AppKit.h"
#include "platform/macos/Reference.h"

#import <AppKit/AppKit.h>
#include <utility>

namespace platform::macos {

/// An entry of a menu of the platform's.
class MenuItem : public NSMenuItem {
public:
    explicit MenuItem(Reference<::NSMenuItem*> item) : item_(std::move(item)) {}

    void setImage(std::shared_ptr<const NSImage> image) override;

    /// The platform's object; never nil.
    [[nodiscard]] ::NSMenuItem* object() const { return item_.get(); }

private:
    Reference<::NSMenuItem*> item_;
};

/// A menu of the platform's.
class Menu : public NSMenu {
public:
    explicit Menu(Reference<::NSMenu*> menu) : menu_(std::move(menu)) {}

    void addItem(std::shared_ptr<NSMenuItem> item) override;

    /// The platform's object; never nil.
    [[nodiscard]] ::NSMenu* object() const { return menu_.get(); }

private:
    Reference<::NSMenu*> menu_;
};

/// The platform's object behind a menu, for a caller that is not to own it: every menu here comes
/// from this back end.
[[nodiscard]] inline ::NSMenu* menuObject(const NSMenu& menu) {
    return [[static_cast<const Menu&>(menu).object() retain] autorelease];
}

} // namespace platform::macos

#pragma once

// The part of AppKit that the extension relies on. The general rules of platform/Foundation.h hold
// here too.

#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// An image. Immutable and opaque.
class NSImage {
public:
    virtual ~NSImage() = default;
};

/// `imageNamed:`: loads a named image from the extension's resources; null when there is none.
[[nodiscard]] std::shared_ptr<const NSImage> imageNamed(std::string_view name);

/// An entry of a menu.
class NSMenuItem {
public:
    virtual ~NSMenuItem() = default;

    /// `setImage:`: the image beside the title; null for none.
    virtual void setImage(std::shared_ptr<const NSImage> image) = 0;
};

/// `initWithTitle:action:keyEquivalent:`: an entry without a target, so that the platform sends
/// its action to the extension. Never null.
[[nodiscard]] std::shared_ptr<NSMenuItem> menuItemWithTitle(const std::string& title,
                                                            std::string_view action,
                                                            std::string_view keyEquivalent);

/// A menu.
class NSMenu {
public:
    virtual ~NSMenu() = default;

    /// `addItem:`: adds an entry at the end.
    virtual void addItem(std::shared_ptr<NSMenuItem> item) = 0;
};

/// `initWithTitle:`: an empty menu. Never null.
[[nodiscard]] std::shared_ptr<NSMenu> menuWithTitle(std::string_view title);

} // namespace platform

#pragma once

// The part of AppKit that the extension relies on. The general rules of platform/Foundation.h hold
// here too.

#include <memory>
#include <string_view>

namespace platform {

/// An image. Immutable; what it shows is the platform's business.
class NSImage {
public:
    virtual ~NSImage() = default;
};

/// `imageNamed:`: loads a named image from the extension's resources, null when there is none.
[[nodiscard]] std::shared_ptr<const NSImage> imageNamed(std::string_view name);

} // namespace platform

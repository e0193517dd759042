#pragma once

#include "platform/AppKit.h"
#include "platform/macos/Reference.h"

#import <AppKit/AppKit.h>

namespace platform::macos {

/// Wraps an AppKit image.
class Image : public NSImage {
public:
    explicit Image(::NSImage* image) : image_(retain(image)) {}

    /// Never nil.
    [[nodiscard]] ::NSImage* object() const { return image_.get(); }

private:
    Reference<::NSImage*> image_;
};

/// The AppKit image in `image`, which this back end has made; nil for null.
[[nodiscard]] inline ::NSImage* imageObject(const NSImage* image) {
    return image == nullptr ? nil : static_cast<const Image*>(image)->object();
}

} // namespace platform::macos

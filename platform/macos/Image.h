#pragma once

#include "platform/AppKit.h"
#include "platform/macos/Reference.h"

#import <AppKit/AppKit.h>

namespace platform::macos {

/// An image of the platform's.
class Image : public NSImage {
public:
    explicit Image(::NSImage* image) : image_(retain(image)) {}

    /// The platform's object; never nil.
    [[nodiscard]] ::NSImage* object() const { return image_.get(); }

private:
    Reference<::NSImage*> image_;
};

/// The platform's object behind an image, nil for none: every image here comes from this back end.
[[nodiscard]] inline ::NSImage* imageObject(const NSImage* image) {
    return image == nullptr ? nil : static_cast<const Image*>(image)->object();
}

} // namespace platform::macos

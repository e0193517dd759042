#include "platform/macos/Image.h"

#include "platform/macos/Strings.h"

namespace platform {

/// AppKit finds the image in each resolution by this name.
std::shared_ptr<const NSImage> imageNamed(std::string_view name) {
    @autoreleasepool {
        const auto text = macos::stringObject(name);
        ::NSImage* const image = [::NSImage imageNamed:text.get()];
        return image == nil ? nullptr : std::make_shared<macos::Image>(image);
    }
}

} // namespace platform

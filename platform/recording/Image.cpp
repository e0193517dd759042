#include "platform/recording/Image.h"

#include "platform/recording/Recording.h"

namespace platform {

std::shared_ptr<const NSImage> imageNamed(std::string_view name) {
    recording::record("imageNamed: " + std::string(name));
    if (!recording::script().images.contains(name))
        return nullptr;
    return std::make_shared<recording::RecordedImage>(name);
}

} // namespace platform

#include "platform/linux/Menu.h"

#include "platform/linux/Image.h"

namespace platform {

namespace linux_backend {

std::string MenuItem::imageName() const {
    return image_ ? static_cast<const ImageFile&>(*image_).name() : std::string();
}

} // namespace linux_backend

std::shared_ptr<NSMenuItem> menuItemWithTitle(const std::string& title, std::string_view action,
                                              std::string_view /*keyEquivalent*/) {
    return std::make_shared<linux_backend::MenuItem>(title, action);
}

std::shared_ptr<NSMenu> menuWithTitle(std::string_view /*title*/) {
    return std::make_shared<linux_backend::Menu>();
}

} // namespace platform

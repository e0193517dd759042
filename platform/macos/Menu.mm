#include "platform/macos/Menu.h"

#include "platform/macos/Image.h"
#include "platform/macos/Strings.h"

namespace platform {

namespace macos {

void MenuItem::setImage(std::shared_ptr<const NSImage> image) {
    [item_.get() setImage:imageObject(image.get())];
}

void Menu::addItem(std::shared_ptr<NSMenuItem> item) {
    [menu_.get() addItem:static_cast<const MenuItem&>(*item).object()];
}

} // namespace macos

std::shared_ptr<NSMenuItem> menuItemWithTitle(const std::string& title, std::string_view action,
                                              std::string_view keyEquivalent) {
    const auto titleObject = macos::stringObject(title);
    const auto actionObject = macos::stringObject(action);
    const auto keyObject = macos::stringObject(keyEquivalent);
    return std::make_shared<macos::MenuItem>(
        macos::adopt([[::NSMenuItem alloc] initWithTitle:titleObject.get()
                                                  action:NSSelectorFromString(actionObject.get())
                                           keyEquivalent:keyObject.get()]));
}

std::shared_ptr<NSMenu> menuWithTitle(std::string_view title) {
    const auto titleObject = macos::stringObject(title);
    return std::make_shared<macos::Menu>(
        macos::adopt([[::NSMenu alloc] initWithTitle:titleObject.get()]));
}

} // namespace platform

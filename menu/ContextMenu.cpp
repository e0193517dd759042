// The context menu of a single selected item inside a root folder.

#include "extension/FinderSync.h"
#include "platform/AppKit.h"
#include "platform/System.h"

#include <cstdio>

namespace findersync {

namespace {

using OptionalPath = std::optional<std::string>;

void appendEscaped(std::string& text, char character) {
    switch (character) {
    case '\\':
    case '"':
    case '\'':
        text += '\\';
        text += character;
        return;
    case '\0':
        text += "\\0";
        return;
    case '\t':
        text += "\\t";
        return;
    case '\n':
        text += "\\n";
        return;
    case '\r':
        text += "\\r";
        return;
    default:
        break;
    }
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x20 && byte != 0x7f) {
        text += character;
        return;
    }
    char escape[sizeof "\\u{7F}"];
    (void)std::snprintf(escape, sizeof escape, "\\u{%X}", byte);
    text += escape;
}

/// Formats an optional string as a debugger shows it.
std::string debugDescription(const OptionalPath& path) {
    if (!path)
        return "nil";
    std::string text = "Optional(\"";
    for (const char character : *path)
        appendEscaped(text, character);
    return text + "\")";
}

std::shared_ptr<platform::NSMenuItem> menuItem(const std::string& title, std::string_view action,
                                               std::string_view image) {
    auto item = platform::menuItemWithTitle(title, action, "");
    item->setImage(platform::imageNamed(image));
    return item;
}

} // namespace

std::shared_ptr<platform::NSMenu> FinderSync::menuForMenuKind(platform::FIMenuKind kind) {
    if (!isSocketConnected())
        return nullptr;
    const auto selection = platform::defaultController().selectedItemURLs();
    if (kind != platform::FIMenuKind::ContextualMenuForItems)
        return nullptr;
    if (!selection)
        platform::fatalError("there is no selection to show a menu for");
    if (selection->size() != 1)
        return nullptr;
    const OptionalPath path = selection->front()->path();
    platform::print("path: ", debugDescription(path));
    return isInsideRootFolder(path) ? buildMenu() : nullptr;
}

/// Whether the path contains the path of a root folder anywhere, as a substring. The root folder
/// itself is not inside, unless its path contains that of another one.
bool FinderSync::isInsideRootFolder(const OptionalPath& path) const {
    const std::size_t count = pathsOfRootFolders().size();
    for (std::size_t index = 0; index < count; ++index) {
        if (!path)
            platform::fatalError("the selected URL has no path");
        const std::vector<std::string>& roots = pathsOfRootFolders();
        if (index >= roots.size())
            platform::fatalError("the root folders have changed during a menu request");
        const std::string& root = roots[index];
        if (platform::containsString(*path, root) && !platform::isEqualToString(*path, root))
            return true;
    }
    return false;
}

std::shared_ptr<platform::NSMenu> FinderSync::buildMenu() const {
    auto menu = platform::menuWithTitle("");
    // Created like the others, but never added to the menu.
    (void)menuItem(shareContactTitle(), "shareContactsClicked:", "icon_share");
    menu->addItem(menuItem(shareViaUrlTitle(), "createLinkClicked:", "icon_URLlink"));
    auto backup = menuItem(backupTitle(), "backupClicked:", "icon_Backup");
    if (displayBackup() == 1)
        menu->addItem(std::move(backup));
    return menu;
}

} // namespace findersync

#pragma once

#include <array>

namespace findersync::bench {

/// What the extension answers to the calls of the bench, and the empty service after it.
struct MenuEntry {
    const char* title;
    const char* action;
    const char* image;
};

inline constexpr const char* badgeIdentifier = "FolderIco";
inline constexpr std::array<MenuEntry, 2> menuEntries = {{
    {"Share by link", "createLinkClicked:", "icon_URLlink"},
    {"Back up", "backupClicked:", "icon_Backup"},
}};

} // namespace findersync::bench

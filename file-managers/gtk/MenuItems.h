#pragma once

#include "file-managers/gtk/Extension.h"

#include <glib-object.h>
#include <string>
#include <vector>

namespace file_managers {

/// How a file manager makes an item of its menus. The label takes an underscore for the mark of an
/// access key, the icon is a name of the theme, and the item is activated when it is picked.
using NewMenuItem = GObject* (*)(const char* name, const char* label, const char* tip,
                                 const char* icon);

/// The extension's entries for selected items, as a list of new menu items that tell it when they
/// are picked; it has to outlive them. One that does not run is started, for the next menu.
[[nodiscard]] GList* menuItems(Extension& extension, const std::vector<std::string>& urls,
                               NewMenuItem newItem);

} // namespace file_managers

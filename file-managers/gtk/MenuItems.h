#pragma once

#include "file-managers/gtk/Products.h"

#include <glib-object.h>

namespace file_managers {

/// What the plug-in needs of a file manager to fill a menu.
struct MenuFunctions {
    /// The URL of a selected file, which the caller frees; null if the file is gone.
    char* (*url)(void* file);
    /// A new menu item, which emits "activate" when it is picked. In the label, an underscore marks
    /// the access key. The icon is a name in the theme.
    GObject* (*newItem)(const char* name, const char* label, const char* tip, const char* icon);
};

/// The products' entries for selected files, which are GObjects: a list of new menu items, which
/// the caller owns, and which the products have to outlive. They keep the files: when one is
/// picked, it reports those that are left, by what they are called then.
[[nodiscard]] GList* menuItems(Products& products, GList* files, const MenuFunctions& functions);

} // namespace file_managers

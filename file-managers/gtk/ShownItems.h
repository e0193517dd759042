#pragma once

// The items that a file manager shows, and their badges.

#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/PacedCall.h"
#include "file-managers/gtk/ProductBadges.h"
#include "file-managers/gtk/Products.h"

#include <map>
#include <string>
#include <unordered_set>

namespace file_managers {

/// Tracks the items that the file manager shows, with the badges that all products give them, and
/// has the file manager update an item whose badges have changed.
class ShownItems {
public:
    explicit ShownItems(Products& products) : products_(products) {}
    ~ShownItems();
    ShownItems(const ShownItems&) = delete;
    ShownItems& operator=(const ShownItems&) = delete;

    /// The file manager shows or updates an item. Adds the emblems of its last known badges, and
    /// requests them from the products, unless a badge that has just arrived causes this update.
    void show(FileInfo* file);

    void productChanged(ExtensionProxy& extension, ExtensionProxy::Change change);

private:
    static void itemGone(void* self, GObject* object);

    void addBadges(ExtensionProxy& extension);
    void removeBadges(const std::string& busName);
    void updateSoon(const ProductBadges::Files& files);
    void update();

    Products& products_;
    ProductBadges::ShownItems files_;
    std::map<std::string, ProductBadges> badges_; ///< by bus name, of the extensions that are ready
    std::unordered_set<FileInfo*> outdated_;      ///< to update; may hold items that are gone
    PacedCall update_{[this] { update(); }};
};

} // namespace file_managers

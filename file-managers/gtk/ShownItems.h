#pragma once

// The items that a file manager shows, and their badges.

#include "file-managers/gtk/ExtensionProxy.h"
#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/SingleShotTimer.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace file_managers {

/// Tracks the items that the file manager shows, requests their badges in batches, and has the file
/// manager update an item whose badge has changed.
class ShownItems {
public:
    explicit ShownItems(ExtensionProxy& extension) : extension_(extension) {}
    ~ShownItems();
    ShownItems(const ShownItems&) = delete;
    ShownItems& operator=(const ShownItems&) = delete;

    /// The file manager shows or updates an item. Adds the emblem of its last known badge, and
    /// requests the badge unless this update shows one that has just arrived.
    void show(FileInfo* file);

    void requestAll();
    void removeBadges();

private:
    struct Item {
        std::string badge;
        bool isQueued = false;
        bool hasNewBadge = false; ///< since the file manager updated it last
    };
    struct Batch {
        std::vector<Object<FileInfo>> files;
        std::vector<std::string> urls;
    };

    static void itemGone(void* self, GObject* file);

    void request(FileInfo* file, Item& item);
    void sendLater();
    void send();
    [[nodiscard]] Batch nextBatch();
    void setBadges(const Batch& batch, const std::vector<std::string>& badges);
    void setBadge(FileInfo* file, const std::string& badge);

    ExtensionProxy& extension_;
    std::unordered_map<FileInfo*, Item> items_;
    std::vector<FileInfo*> queue_; ///< to be requested; may hold items that are gone
    SingleShotTimer sendTimer_{[this] { send(); }};
    bool isPending_ = false; ///< a request is; the next is sent once it is answered
};

} // namespace file_managers

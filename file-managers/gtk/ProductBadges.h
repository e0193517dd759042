#pragma once

#include "file-managers/gtk/ExtensionProxy.h"
#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/SingleShotTimer.h"

#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace file_managers {

/// One product's badges of the items that are shown. Requests them in batches, one at a time, so
/// that a product that hangs keeps no other waiting.
class ProductBadges {
public:
    /// `changed` is called from the main loop when an item has another badge. The extension is
    /// ready.
    ProductBadges(ExtensionProxy& extension, std::function<void(FileInfo*)> changed)
        : extension_(extension), changed_(std::move(changed)) {}
    ~ProductBadges() = default;
    ProductBadges(const ProductBadges&) = delete;
    ProductBadges& operator=(const ProductBadges&) = delete;

    /// Requests an item's badge, unless it is to be requested anyway.
    void request(FileInfo* file);

    /// Adds the emblem of an item's last known badge, if any.
    void addEmblem(FileInfo* file) const;

    /// The item is shown no longer.
    void forget(FileInfo* file);

    [[nodiscard]] std::vector<FileInfo*> badgedFiles() const;

private:
    struct Batch {
        std::vector<Object<FileInfo>> files;
        std::vector<std::string> urls;
    };

    void sendLater();
    void send();
    [[nodiscard]] Batch nextBatch();
    void setBadges(const Batch& batch, const std::vector<std::string>& badges);
    void setBadge(FileInfo* file, const std::string& badge);

    ExtensionProxy& extension_;
    std::function<void(FileInfo*)> changed_;
    std::unordered_map<FileInfo*, std::string> badges_; ///< of the items that have one
    std::vector<FileInfo*> queue_;         ///< to be requested; may hold items that are gone
    std::unordered_set<FileInfo*> queued_; ///< without those that are gone
    SingleShotTimer sendTimer_{[this] { send(); }};
    bool isPending_ = false; ///< a request is; the next is sent once it is answered
};

} // namespace file_managers

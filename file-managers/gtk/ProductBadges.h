#pragma once

#include "file-managers/Backoff.h"
#include "file-managers/RootFolders.h"
#include "file-managers/gtk/ExtensionProxy.h"
#include "file-managers/gtk/FileManager.h"
#include "file-managers/gtk/PacedCall.h"
#include "file-managers/gtk/SingleShotTimer.h"

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace file_managers {

struct ShownItem {
    NameHash name = 0;
    bool isUpdated = false; ///< by us: the file manager is to ask for the emblems anew
};

/// One product's badges of the items that are shown. Requests them in batches, one at a time, so
/// that a product that hangs keeps no other waiting.
class ProductBadges {
public:
    using Files = std::vector<FileInfo*>;
    using ShownItems = std::unordered_map<FileInfo*, ShownItem>;

    /// Requests the badges of these items. `changed` is called from the main loop when some have
    /// others. The extension is ready.
    ProductBadges(ExtensionProxy& extension, const ShownItems& items,
                  std::function<void(const Files&)> changed)
        : extension_(extension), shown_(items), changed_(std::move(changed)) {
        extension_.observeRootFolders([this](const FolderNames& names) {
            changedNames_.add(names);
            requestChanged_.request();
        });
        requestRootFolders();
    }
    ~ProductBadges() = default;
    ProductBadges(const ProductBadges&) = delete;
    ProductBadges& operator=(const ProductBadges&) = delete;

    /// Requests an item's badge, if it can have one or, under another name, could, and unless it is
    /// to be requested anyway, soon or when it has failed.
    void request(FileInfo* file, NameHash name);

    /// Adds the emblem of an item's last known badge, if any.
    void addEmblem(FileInfo* file) const;

    /// The item is shown no longer.
    void forget(FileInfo* file);

    [[nodiscard]] Files badgedFiles() const;

private:
    struct Item {
        bool isQueued = false; ///< in queue_
        bool isFailed = false; ///< in failed_ or retried_
    };
    struct Batch {
        std::vector<Object<FileInfo>> files;
        std::vector<std::string> urls;
    };

    void requestRootFolders();
    void requestChanged();
    void enqueue(FileInfo* file);
    void sendLater();
    void send();
    [[nodiscard]] Batch nextBatch();
    [[nodiscard]] Batch takeBatch(Files& files, bool Item::* isHere);
    void answered(const Batch& batch, const std::vector<std::string>& badges);
    void retryLater(const Batch& batch);
    void retry();
    [[nodiscard]] bool setBadge(FileInfo* file, const std::string& badge);

    ExtensionProxy& extension_;
    const ShownItems& shown_;
    std::function<void(const Files&)> changed_;
    FolderNames names_; ///< of the root folders, and of some that were; none until they are known
    std::unordered_map<FileInfo*, Item> items_;         ///< that were ever to be requested
    std::unordered_map<FileInfo*, std::string> badges_; ///< of the items that have one
    // What is to be requested; may hold items that are gone. A request that has failed is divided,
    // and waits apart, so that one bad item keeps no other waiting.
    Files queue_;
    std::vector<Files> failed_;
    std::vector<Files> retried_; ///< failed, and due
    Backoff backoff_;
    SingleShotTimer sendTimer_{[this] { send(); }};
    SingleShotTimer retryTimer_{[this] { retry(); }};
    bool isPending_ = false;   ///< a request is; the next is sent once it is answered
    FolderNames changedNames_; ///< since the last call of requestChanged()
    PacedCall requestChanged_{[this] { requestChanged(); }};
};

} // namespace file_managers

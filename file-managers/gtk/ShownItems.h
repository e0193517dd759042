#pragma once

// The items that a file manager shows, and their badges.

#include "file-managers/gtk/Extension.h"
#include "file-managers/gtk/FileManager.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace file_managers {

/// Keeps what the file manager shows for as long as it shows it, asks the extension about it in
/// batches, and has the file manager show an item anew when its badge has changed.
class ShownItems {
public:
    explicit ShownItems(Extension& extension) : extension_(extension) {}
    ~ShownItems();
    ShownItems(const ShownItems&) = delete;
    ShownItems& operator=(const ShownItems&) = delete;

    /// The file manager shows an item. Adds the emblem of the badge that is known of it.
    void show(FileInfo* file);

    /// Asks about every item again, or takes all badges away.
    void askAgain();
    void forgetBadges();

private:
    struct Item {
        std::string badge;
        bool isToBeAsked = false;
        bool hasJustBeenTold = false; ///< it is shown anew because of the answer
    };
    struct Request {
        std::vector<Object<FileInfo>> files;
        std::vector<std::string> urls;
    };

    static void itemGone(void* self, GObject* file);

    void ask(FileInfo* file, Item& item);
    void sendLater();
    void send();
    [[nodiscard]] Request nextRequest();
    void take(const Request& request, const std::vector<std::string>& badges);
    void setBadge(FileInfo* file, const std::string& badge);

    Extension& extension_;
    std::unordered_map<FileInfo*, Item> items_;
    std::vector<FileInfo*> toBeAsked_; ///< what is not in `items_` any more does not count
    guint sendSource_ = 0;             ///< in the main loop
    bool isAsking_ = false; ///< one request at a time: what comes up meanwhile goes into the next
};

} // namespace file_managers

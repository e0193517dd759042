#pragma once

// The emblems that GVfs stores for a file in its attribute "metadata::emblems". Thunar draws them.

#include "file-managers/Backoff.h"
#include "file-managers/gtk/Handles.h"
#include "file-managers/gtk/SingleShotTimer.h"

#include <filesystem>
#include <functional>
#include <gio/gio.h>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace file_managers {

/// Sets the attribute in information about a file, and stores nothing.
void setEmblems(GFileInfo* info, std::vector<std::string> emblems);

/// Has GVfs store products' emblems for the folders that are to have them, and for no other; the
/// emblems that the user has chosen stay. What may be stored is first written to a small file,
/// $XDG_STATE_HOME/finder-sync/thunar-emblems, so that the next process can take away what this one
/// leaves behind. No other file is opened. Belongs to the main thread.
class FolderEmblems {
public:
    /// Gets a folder's URL and all of its emblems, the user's too, once they are stored.
    using Stored = std::function<void(const std::string& url, std::vector<std::string> emblems)>;

    /// `stored` is called from the main loop.
    explicit FolderEmblems(Stored stored);
    ~FolderEmblems();
    FolderEmblems(const FolderEmblems&) = delete;
    FolderEmblems& operator=(const FolderEmblems&) = delete;

    /// A product gives a folder an emblem, or takes its emblems away from folders. Both return at
    /// once.
    void add(const std::string& url, const std::string& busName, const std::string& emblem);
    void removeUnless(const std::string& busName,
                      const std::function<bool(const std::string& url)>& keeps);

    [[nodiscard]] bool has(const std::string& url, const std::string& busName) const;

    /// Takes away the emblems that an earlier process has left behind and that are not wanted now.
    /// Returns at once.
    void removeUnwanted();

private:
    using Names = std::set<std::string>;
    using Emblems = std::map<std::string, Names>; ///< by URL

    void load();
    [[nodiscard]] bool record(const std::string& url, const Names& emblems);
    void rewriteRecord();
    void connected(GDBusConnection* bus);
    void metadataChanged(std::string_view tree, std::string_view path);
    void check(const std::string& url);
    void checkNext();
    void queried(GFileInfo* info);
    void queryFailed(const GError& error);
    void store(std::vector<std::string> emblems);
    void finish(const GError* error);
    void settle();
    void failed(const GError& error);
    void waitForFolder();
    [[nodiscard]] Names wanted(const std::string& url) const;
    [[nodiscard]] bool isOurs(const std::string& emblem) const;

    Stored stored_;
    std::filesystem::path recordFile_;
    /// By URL and by the product's bus name.
    std::map<std::string, std::map<std::string, std::string>> wanted_;
    Emblems recorded_; ///< that may be stored
    Emblems saved_;    ///< that the file names
    Names queue_;      ///< folders to check
    std::string url_;  ///< the one that is being checked, or ""
    Object<GFile> folder_;
    std::vector<std::string> emblems_; ///< that are being stored for it
    Names failed_;
    bool hasWarned_ = false;
    Backoff backoff_;
    SingleShotTimer retry_{[this] {
        queue_.merge(failed_);
        checkNext();
    }};
    std::map<std::string, Object<GFileMonitor>> missing_; ///< wanted, but there is no such folder
    Object<GCancellable> cancellable_{g_cancellable_new()};
    Object<GDBusConnection> bus_;
    guint subscription_ = 0;
};

} // namespace file_managers

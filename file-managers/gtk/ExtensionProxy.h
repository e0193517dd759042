#pragma once

// The extension's process, seen from a file manager's main thread. No call blocks that thread,
// except that a menu waits for the extension's answer until `menuTimeout`.

#include "file-managers/gtk/Handles.h"
#include "file-managers/gtk/SingleShotTimer.h"

#include <functional>
#include <gio/gio.h>
#include <string>
#include <vector>

// Generated from the interface.
struct _FinderSyncExtension1; // NOLINT(bugprone-reserved-identifier)

namespace file_managers {

struct MenuEntry {
    std::string title;
    std::string selector; ///< of the action
    std::string image;    ///< the icon's name in the theme, without its prefix
};

/// Stands for the extension on the session bus. Belongs to the main thread.
class ExtensionProxy {
public:
    /// What has changed. Appeared and Gone concern badges and menus, as do RootFolders; Menus
    /// concerns menus alone.
    enum class Change { Appeared, Gone, RootFolders, Menus };

    /// `changed` is called from the main loop, never from within a call of this class.
    explicit ExtensionProxy(std::function<void(Change)> changed);
    ~ExtensionProxy();
    ExtensionProxy(const ExtensionProxy&) = delete;
    ExtensionProxy& operator=(const ExtensionProxy&) = delete;

    [[nodiscard]] bool isRunning() const { return isRunning_; }

    /// Has the bus start the extension unless it runs, at most once per `startBackoff`. Returns at
    /// once.
    void start();

    /// Whether an item lies in a watched directory and its path is UTF-8. URLs are spelt as GLib
    /// spells them.
    [[nodiscard]] bool watches(const char* url) const;

    /// Asks for the badges of items. Returns at once. `answer` is called from the main loop with
    /// one identifier for each URL, in their order, "" for no badge; or with an empty list when the
    /// request failed.
    using BadgesAnswer = std::function<void(std::vector<std::string>)>;
    void requestBadges(const std::vector<std::string>& urls, BadgesAnswer answer);

    /// The entries that the extension offers for selected items. Empty when it does not run, does
    /// not answer within `menuTimeout`, or did not answer within the last `menuBackoff`.
    [[nodiscard]] std::vector<MenuEntry> menuForItems(const std::vector<std::string>& urls);

    /// Tells the extension which entry was picked. Returns at once.
    void performAction(const std::string& selector, const std::vector<std::string>& urls);

private:
    void connected(_FinderSyncExtension1* proxy);
    void ownerChanged();
    void propertiesChanged(GVariant* changed);

    std::function<void(Change)> changed_;
    Object<GCancellable> cancellable_{g_cancellable_new()};
    Object<_FinderSyncExtension1> proxy_;
    bool isRunning_ = false;
    bool isWanted_ = false; ///< start() was called, maybe before the bus was connected
    std::vector<std::string> watchedDirectories_;
    gint64 startBackoffEnd_ = 0; ///< on the monotonic clock, in microseconds
    gint64 menuBackoffEnd_ = 0;
    SingleShotTimer startLater_{[this] { start(); }};
};

} // namespace file_managers

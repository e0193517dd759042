#pragma once

// The extension's process, as a file manager's main thread sees it: nothing here makes that thread
// wait, but for a menu, which takes a tenth of a second at the most.

#include "file-managers/gtk/Handles.h"

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
    std::string image;    ///< name of an icon of the theme
};

class Extension {
public:
    /// What menus and badges may follow from has changed: everything, or what it holds for menus,
    /// or its root folders, for both.
    enum class Change { Appeared, Gone, RootFolders, Menus };

    /// `changed` is called from the main loop, never from within a call of this class.
    explicit Extension(std::function<void(Change)> changed);
    ~Extension();
    Extension(const Extension&) = delete;
    Extension& operator=(const Extension&) = delete;

    [[nodiscard]] bool isRunning() const { return isRunning_; }

    /// Has the bus start the extension unless it runs; a second after the last start at the
    /// earliest. Returns at once.
    void start();

    /// Whether the extension wants to be asked about an item. URLs are in GLib's spelling.
    [[nodiscard]] bool watches(const char* url) const;

    /// Asks for the badges of items: their identifiers, empty for none, in the order of the URLs.
    /// Returns at once; the answer comes from the main loop, and is empty when there is none.
    using BadgesAnswer = std::function<void(std::vector<std::string>)>;
    void requestBadges(const std::vector<std::string>& urls, BadgesAnswer answer);

    /// The entries that the extension offers for selected items.
    [[nodiscard]] std::vector<MenuEntry> menuForItems(const std::vector<std::string>& urls);

    /// Tells the extension what has been picked. Returns at once.
    void performAction(const std::string& selector, const std::vector<std::string>& urls);

private:
    void connected(_FinderSyncExtension1* proxy);
    void ownerChanged();
    void propertiesChanged(GVariant* changed);

    std::function<void(Change)> changed_;
    Object<GCancellable> cancellable_{g_cancellable_new()};
    Object<_FinderSyncExtension1> proxy_;
    bool isRunning_ = false;
    bool isWanted_ = false; ///< somebody wanted it before the bus was there
    std::vector<std::string> watchedDirectories_;
    gint64 noStartBefore_ = 0; ///< by the monotonic clock, in microseconds
    gint64 noMenuBefore_ = 0;
    guint startSource_ = 0; ///< of a start that has to wait
};

} // namespace file_managers

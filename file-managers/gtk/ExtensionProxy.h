#pragma once

// A running extension, seen from a file manager's main thread. No call blocks that thread.

#include "file-managers/Backoff.h"
#include "file-managers/RootFolders.h"
#include "file-managers/gtk/BusCall.h"
#include "file-managers/gtk/Handles.h"
#include "file-managers/gtk/SingleShotTimer.h"

#include <functional>
#include <gio/gio.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace file_managers {

struct MenuEntry {
    std::string title;    ///< cut if it was too long
    std::string selector; ///< of the action
    std::string image;    ///< the icon's name in the theme, without the product's prefix
};

/// The path of an item as it is compared, so that canonically equivalent texts are equal, and
/// without a "/" at the end. Nothing unless the URL is one of a file on this machine whose path is
/// UTF-8. Extensions are told of no other item: a single one makes them refuse the whole request.
[[nodiscard]] std::optional<std::string> composedPath(const char* url);

/// The name of an item or a root folder, by its path or the end of that, to be compared.
[[nodiscard]] NameHash nameOf(const char* path);

/// Stands for the process that owns a product's name on the session bus. Belongs to the main
/// thread. Destroying it cancels its requests: their answers do not come any more.
class ExtensionProxy {
public:
    /// What has changed. Appeared and Gone concern badges and menus, Properties menus alone.
    enum class Change { Appeared, Gone, Properties };
    using Changed = std::function<void(ExtensionProxy&, Change)>;

    /// `owner` is the unique name of the process. `changed` is called from the main loop, never
    /// from within a call of this class, and does not report Gone.
    ExtensionProxy(GDBusConnection* bus, std::string busName, std::string owner, Changed changed);
    ~ExtensionProxy();
    ExtensionProxy(const ExtensionProxy&) = delete;
    ExtensionProxy& operator=(const ExtensionProxy&) = delete;

    [[nodiscard]] const std::string& busName() const { return busName_; }

    /// How the names of the product's icons begin: "com.example.companion." for
    /// com.example.companion.FinderSync.
    [[nodiscard]] const std::string& iconPrefix() const { return iconPrefix_; }

    /// Whether the process offers the interface, and Appeared was reported. Only then may it be
    /// asked for anything.
    [[nodiscard]] bool isReady() const { return isReady_; }

    /// Whether an item lies in a watched directory. Only then may its badge be asked for.
    [[nodiscard]] bool watches(const char* url) const;

    /// Has `changed` called from the main loop when root folders were added or removed. Call it
    /// before badges are requested, so that no change of theirs is missed.
    using RootFoldersChanged = std::function<void(const FolderNames&)>;
    void observeRootFolders(RootFoldersChanged changed);

    /// Asks for the paths of the root folders: texts that end in a NUL and last until `answer`
    /// returns. Nothing when they cannot be had.
    using PathsAnswer = std::function<void(std::optional<std::vector<std::string_view>>)>;
    void requestPathsOfRootFolders(const PathsAnswer& answer);

    /// Asks for the names of the root folders: any name when they cannot be had.
    void requestNamesOfRootFolders(const std::function<void(FolderNames)>& answer);

    /// Asks for the badges of items. `answer` gets one identifier for each URL, in their order, ""
    /// for no badge; or an empty list when the request failed.
    using BadgesAnswer = std::function<void(std::vector<std::string>)>;
    void requestBadges(const std::vector<std::string>& urls, BadgesAnswer answer);

    /// Whether to ask for a menu: each was answered, none took longer than `menuTimeout` within the
    /// last `menuBackoff`, and the last was not nonsense, or a while ago.
    [[nodiscard]] bool takesMenuRequests() const;

    /// Asks for the entries offered for selected items. `answer` is called from the main context
    /// that is the thread's default now.
    using MenuAnswer = std::function<void(std::vector<MenuEntry>)>;
    void requestMenu(const std::vector<std::string>& urls, MenuAnswer answer);

private:
    using SignalHandler = void (ExtensionProxy::*)(GVariant* arguments);

    template <SignalHandler handler>
    void subscribe(const char* interface, const char* signal, const char* firstArgument);
    void requestDirectories();
    void requestTexts(const char* property, const std::function<void(GVariant* texts)>& got);
    void propertiesChanged(GVariant* arguments);
    void rootFoldersChanged(GVariant* arguments);
    [[nodiscard]] Method method(const char* name) const;

    GDBusConnection* bus_;
    std::string busName_;
    std::string iconPrefix_;
    std::string owner_;
    Changed changed_;
    Object<GCancellable> cancellable_{g_cancellable_new()};
    std::vector<guint> subscriptions_;
    RootFoldersChanged rootFoldersChanged_;
    bool isReady_ = false;
    Backoff retryBackoff_;
    SingleShotTimer retry_{[this] { requestDirectories(); }};
    std::vector<std::string> watchedDirectories_; ///< paths without a "/" at the end
    bool isMenuPending_ = false;
    Clock::time_point menuBackoffEnd_;
    Backoff nonsenseBackoff_; ///< of menus
};

/// An array of texts, as an argument of a call. It is floating.
[[nodiscard]] GVariant* newTexts(const std::vector<std::string>& texts);

} // namespace file_managers

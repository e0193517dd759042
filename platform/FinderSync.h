#pragma once

// The part of the FinderSync framework that the extension relies on. The general rules of
// platform/Foundation.h hold here too.

#include "platform/AppKit.h"
#include "platform/Foundation.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace platform {

/// The base class of an extension's principal object. It declares none of the platform's callbacks:
/// the extension's own class does, in its own order, and a host calls them there.
class FIFinderSync {
public:
    FIFinderSync(const FIFinderSync&) = delete;
    FIFinderSync& operator=(const FIFinderSync&) = delete;
    virtual ~FIFinderSync() = default;

protected:
    FIFinderSync() = default;

    /// `init` of the base class: returns this object, or null on failure.
    [[nodiscard]] FIFinderSync* init();
};

/// Where a menu is shown. An unsigned integer: other values than the named ones can arrive.
enum class FIMenuKind : std::uint64_t {
    ContextualMenuForItems = 0,
    ContextualMenuForContainer = 1,
    ContextualMenuForSidebar = 2,
    ToolbarItemMenu = 3,
};

/// The extension's interface to the Finder.
class FIFinderSyncController {
public:
    virtual ~FIFinderSyncController() = default;

    /// `setDirectoryURLs:`: replaces the set of directories that the Finder watches for this
    /// extension. The URLs are not null; equal ones count once.
    virtual void setDirectoryURLs(const std::vector<std::shared_ptr<const NSURL>>& urls) = 0;

    /// `setBadgeImage:label:forBadgeIdentifier:`: registers a badge: its image, a label shown to
    /// the user, and the identifier by which it is assigned to items. A second registration under
    /// the same identifier replaces the first.
    virtual void setBadgeImage(std::shared_ptr<const NSImage> image, std::string_view label,
                               std::string_view badgeIdentifier) = 0;

    /// `setBadgeIdentifier:forURL:`: assigns the badge registered under the identifier to the item
    /// at the URL.
    virtual void setBadgeIdentifier(std::string_view badgeIdentifier, const NSURL& url) = 0;

    /// `selectedItemURLs`: the selected items during a menu request or an action, in the Finder's
    /// order; nullopt at any other time. The URLs are not null.
    [[nodiscard]] virtual std::optional<std::vector<std::shared_ptr<const NSURL>>>
    selectedItemURLs() const = 0;
};

/// `defaultController`: the controller of this process. It lives as long as the process.
[[nodiscard]] FIFinderSyncController& defaultController();

} // namespace platform

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

/// The base class of an extension's principal object. The callbacks that a platform's own base
/// class declares are operations of the extension's class here, in its own order; a host calls them
/// there.
class FIFinderSync {
public:
    FIFinderSync(const FIFinderSync&) = delete;
    FIFinderSync& operator=(const FIFinderSync&) = delete;
    virtual ~FIFinderSync() = default;

protected:
    FIFinderSync() = default;

    /// `init` of the base class: gives this object, or null when the platform refuses to have it.
    [[nodiscard]] FIFinderSync* init();
};

/// Where a menu is shown. An unsigned integer: other values than the named ones can arrive.
enum class FIMenuKind : std::uint64_t {
    ContextualMenuForItems = 0,
    ContextualMenuForContainer = 1,
    ContextualMenuForSidebar = 2,
    ToolbarItemMenu = 3,
};

/// The extension's line to the Finder.
class FIFinderSyncController {
public:
    virtual ~FIFinderSyncController() = default;

    /// `setDirectoryURLs:`: replaces the set of directories that the Finder watches for this
    /// extension. The URLs are not null; equal ones count once.
    virtual void setDirectoryURLs(const std::vector<std::shared_ptr<const NSURL>>& urls) = 0;

    /// `setBadgeImage:label:forBadgeIdentifier:`: registers a badge: its image, a label shown to
    /// the user, and the identifier under which items are later badged. A second registration
    /// under the same identifier replaces the first.
    virtual void setBadgeImage(std::shared_ptr<const NSImage> image, std::string_view label,
                               std::string_view badgeIdentifier) = 0;

    /// `setBadgeIdentifier:forURL:`: shows the badge registered under the identifier on the item at
    /// the URL.
    virtual void setBadgeIdentifier(std::string_view badgeIdentifier, const NSURL& url) = 0;

    /// `selectedItemURLs`: what is selected while a menu or an action is asked for, in the Finder's
    /// order; none at any other time. The URLs are not null.
    [[nodiscard]] virtual std::optional<std::vector<std::shared_ptr<const NSURL>>>
    selectedItemURLs() const = 0;
};

/// `defaultController`: the controller of this process; lives as long as the process.
[[nodiscard]] FIFinderSyncController& defaultController();

} // namespace platform

#pragma once

#include "file-managers/Backoff.h"
#include "file-managers/gtk/ExtensionProxy.h"
#include "file-managers/gtk/PacedCall.h"
#include "file-managers/gtk/SingleShotTimer.h"
#include "file-managers/thunar/FolderEmblems.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace file_managers {

/// The root folders that one product announces: gives them the badges that its extension has for
/// them. Asks for no others, since Thunar does not report which items it shows.
class AnnouncedFolders {
public:
    /// The extension is ready.
    AnnouncedFolders(ExtensionProxy& extension, FolderEmblems& emblems);
    /// Takes the badges away.
    ~AnnouncedFolders();
    AnnouncedFolders(const AnnouncedFolders&) = delete;
    AnnouncedFolders& operator=(const AnnouncedFolders&) = delete;

private:
    void requestPaths();
    void read(const std::vector<std::string_view>& paths);
    void requestBadges();
    void answered(const std::vector<std::string>& urls, const std::vector<std::string>& badges);
    void finish(bool isRead);

    ExtensionProxy& extension_;
    FolderEmblems& emblems_;
    std::vector<std::string> unknown_; ///< URLs of the root folders whose badges to request
    bool isReading_ = false;           ///< or will read again after a pause
    bool isOutdated_ = false;          ///< the list has changed while it was read
    Backoff backoff_;
    SingleShotTimer retry_{[this] { requestPaths(); }};
    PacedCall read_{[this] {
        isOutdated_ = isReading_;
        if (!std::exchange(isReading_, true))
            requestPaths();
    }};
};

} // namespace file_managers

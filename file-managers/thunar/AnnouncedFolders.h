#pragma once

#include "file-managers/RootFolders.h"
#include "file-managers/gtk/ExtensionProxy.h"
#include "file-managers/gtk/PacedCall.h"
#include "file-managers/gtk/SingleShotTimer.h"
#include "file-managers/thunar/FolderEmblems.h"

#include <string>
#include <string_view>
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

    void rootFoldersChanged() { read_.request(); }

private:
    void requestPaths();
    void read(const std::vector<std::string_view>& paths);
    void requestBadges();
    void answered(const std::vector<std::string>& urls, const std::vector<std::string>& badges);
    void finish(RootFolders::List list);

    ExtensionProxy& extension_;
    FolderEmblems& emblems_;
    std::vector<std::string> unknown_; ///< URLs of the root folders whose badges to request
    RootFolders requests_;             ///< only tells when to request the next list
    SingleShotTimer retry_{[this] { requestPaths(); }};
    PacedCall read_{[this] {
        if (requests_.request())
            requestPaths();
    }};
};

} // namespace file_managers

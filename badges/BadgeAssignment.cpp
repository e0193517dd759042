// Assigns the extension's only badge: root folders have it, and no other item.

#include "extension/FinderSync.h"
#include "extension/URLParts.h"
#include "platform/System.h"

namespace findersync {

void FinderSync::requestBadgeIdentifierForURL(const platform::NSURL& url) {
    platform::NSLog("requestBadgeIdentifierForURL: %@", filePathDescription(url));
    const std::size_t count = pathsOfRootFolders().size();
    for (std::size_t index = 0; index < count; ++index) {
        const std::vector<std::string>& roots = pathsOfRootFolders();
        if (index >= roots.size())
            platform::fatalError("the root folders have changed during a badge request");
        const std::string& root = roots[index];
        platform::NSLog("curpath: %@", root);
        const std::string path = requiredPath(url);
        platform::NSLog("path: %@", path);
        if (platform::isEqualToString(root, path)) {
            platform::defaultController().setBadgeIdentifier("FolderIco", url);
            return;
        }
    }
}

} // namespace findersync

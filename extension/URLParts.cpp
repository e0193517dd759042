#include "extension/URLParts.h"

#include "platform/System.h"

#include <memory>
#include <optional>
#include <utility>

namespace findersync {

std::string filePathDescription(const platform::NSURL& url) {
    const std::shared_ptr<const platform::NSURL> filePathURL = url.filePathURL();
    if (!filePathURL)
        platform::fatalError("a URL has no file path: " + url.description());
    return filePathURL->description();
}

std::string requiredPath(const platform::NSURL& url) {
    std::optional<std::string> path = url.path();
    if (!path)
        platform::fatalError("a URL has no path: " + url.description());
    return *std::move(path);
}

} // namespace findersync

#include "platform/macos/URL.h"

#include "platform/macos/Strings.h"

namespace platform {

namespace macos {

std::shared_ptr<const NSURL> URL::filePathURL() const {
    @autoreleasepool {
        ::NSURL* const url = [url_.get() filePathURL];
        return url == nil ? nullptr : std::make_shared<URL>(url);
    }
}

std::optional<std::string> URL::path() const {
    @autoreleasepool {
        ::NSString* const path = [url_.get() path];
        if (path == nil)
            return std::nullopt;
        return utf8Text(path);
    }
}

std::string URL::description() const {
    @autoreleasepool {
        return utf8Text([url_.get() description]);
    }
}

} // namespace macos

std::shared_ptr<const NSURL> fileURLWithPath(std::string_view path) {
    @autoreleasepool {
        // Foundation has no URL for the empty path.
        ::NSString* const text = path.empty()
                                     ? [[::NSFileManager defaultManager] currentDirectoryPath]
                                     : macos::stringObject(path).autoreleased();
        return std::make_shared<macos::URL>([::NSURL fileURLWithPath:text]);
    }
}

} // namespace platform

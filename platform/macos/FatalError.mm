#include "platform/System.h"
#include "platform/macos/Strings.h"

#include <cstdlib>
#include <os/log.h>

namespace platform {

/// Logs the reason twice: NSLog writes it to standard error too, but from macOS 26 on the log shows
/// its text as "<private>".
void fatalError(std::string_view reason) {
    @autoreleasepool {
        ::NSArray* const lines = [macos::stringObject(reason).autoreleased()
            componentsSeparatedByCharactersInSet:[::NSCharacterSet controlCharacterSet]];
        ::NSString* const line = [lines componentsJoinedByString:@" "];
        os_log_error(OS_LOG_DEFAULT, "fatal error: %{public}s", [line UTF8String]);
        ::NSLog(@"fatal error: %@", line);
    }
    std::abort();
}

} // namespace platform

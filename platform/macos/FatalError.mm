#include "platform/System.h"
#include "platform/macos/Strings.h"

#include <cstdlib>

namespace platform {

/// Logs the reason, which NSLog writes to standard error too.
void fatalError(std::string_view reason) {
    @autoreleasepool {
        ::NSArray* const lines = [macos::stringObject(reason).autoreleased()
            componentsSeparatedByCharactersInSet:[::NSCharacterSet controlCharacterSet]];
        ::NSLog(@"fatal error: %@", [lines componentsJoinedByString:@" "]);
    }
    std::abort();
}

} // namespace platform

#include "platform/System.h"
#include "platform/macos/Strings.h"

#include <cstdlib>

namespace platform {

/// The system log is where the end of an extension is looked for; it writes to standard error too.
void fatalError(std::string_view reason) {
    @autoreleasepool {
        ::NSArray* const lines = [macos::stringObject(reason).autoreleased()
            componentsSeparatedByCharactersInSet:[::NSCharacterSet controlCharacterSet]];
        ::NSLog(@"fatal error: %@", [lines componentsJoinedByString:@" "]);
    }
    std::abort();
}

} // namespace platform

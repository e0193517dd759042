#include "platform/Foundation.h"
#include "platform/macos/Strings.h"

namespace platform {

/// The line is put together here, so that no text is ever taken for a format.
void NSLog(std::string_view format, std::string_view argument) {
    @autoreleasepool {
        std::string line(format);
        if (const auto place = line.find("%@"); place != std::string::npos)
            line.replace(place, 2, argument);
        ::NSLog(@"%@", macos::stringObject(line).autoreleased());
    }
}

} // namespace platform

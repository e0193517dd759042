#include "platform/Foundation.h"
#include "platform/macos/Strings.h"

namespace platform {

/// Formats the line itself, so that NSLog never parses a text as a format.
void NSLog(std::string_view format, std::string_view argument) {
    @autoreleasepool {
        std::string line(format);
        if (const auto place = line.find("%@"); place != std::string::npos)
            line.replace(place, 2, argument);
        ::NSLog(@"%@", macos::stringObject(line).autoreleased());
    }
}

} // namespace platform

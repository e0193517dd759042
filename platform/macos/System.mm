// The log, standard output, the C library and the end of the process.

#include "platform/System.h"

#include "platform/Foundation.h"
#include "platform/macos/Strings.h"
#include "process/StandardStreams.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/xattr.h>
#include <unistd.h>

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

/// Each line is written at once: the trace of an extension that the Finder runs goes nowhere, and a
/// developer who looks on wants to see it at the time.
void print(std::string_view text, std::string_view value) {
    std::string line(text);
    line.append(value) += '\n';
    (void)process::writeFully(STDOUT_FILENO, line);
}

void* malloc(std::size_t size) {
    return std::malloc(size);
}

/// Options 0: a symbolic link is followed, and the compression attribute stays hidden.
std::int64_t listxattr(const std::string& path, char* buffer, std::size_t size) {
    return ::listxattr(path.c_str(), buffer, size, 0);
}

int errorNumber() {
    return errno;
}

const char* strerror(int number) {
    return std::strerror(number);
}

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

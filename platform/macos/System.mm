#include "platform/System.h"

#include "process/StandardStreams.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/xattr.h>
#include <unistd.h>

namespace platform {

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

} // namespace platform

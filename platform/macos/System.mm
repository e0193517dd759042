#include "platform/System.h"

#include "process/StandardStreams.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/xattr.h>
#include <unistd.h>

namespace platform {

/// Unbuffered: the Finder connects an extension's standard output to nothing, and a developer who
/// runs the program wants to see each line at once.
void print(std::string_view text, std::string_view value) {
    std::string line(text);
    line.append(value) += '\n';
    (void)process::writeFully(STDOUT_FILENO, line);
}

void* malloc(std::size_t size) {
    return std::malloc(size);
}

/// Options 0: follows symbolic links and hides the compression attribute.
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

#include "platform/System.h"

#include "platform/linux/BufferedOutput.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/xattr.h>

namespace platform {

void print(std::string_view text, std::string_view value) {
    linux_backend::bufferLine(text, value);
}

void* malloc(std::size_t size) {
    return std::malloc(size);
}

std::int64_t listxattr(const std::string& path, char* buffer, std::size_t size) {
    return ::listxattr(path.c_str(), buffer, size);
}

int errorNumber() {
    return errno;
}

const char* strerror(int number) {
    return std::strerror(number);
}

} // namespace platform

#include "process/StandardStreams.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace process {

namespace {

/// Another process may have made the shared descriptor non-blocking.
void waitUntilWritable(int descriptor) {
    pollfd request{.fd = descriptor, .events = POLLOUT, .revents = 0};
    (void)::poll(&request, 1, -1);
}

} // namespace

void secureStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0)
            (void)::open("/dev/null",
                         O_RDWR); // open() takes the lowest free number, which is this one
    }
}

int writeFully(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written >= 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (errno == EAGAIN)
            waitUntilWritable(descriptor);
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

} // namespace process

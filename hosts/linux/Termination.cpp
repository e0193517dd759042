#include "hosts/linux/Termination.h"

#include "platform/System.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace findersync {

namespace {

constexpr unsigned patienceInSeconds = 1;

/// Carries the request from the signal handler, which knows only globals, to the run loop.
int terminationRequest = -1; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

void requestTermination(int) {
    const int savedErrno = errno;
    const std::uint64_t one = 1;
    if (::write(terminationRequest, &one, sizeof one) < 0)
        ::_exit(EXIT_SUCCESS);
    (void)::alarm(patienceInSeconds);
    errno = savedErrno;
}

void terminateNow(int) {
    ::_exit(EXIT_SUCCESS);
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    (void)sigemptyset(&action.sa_mask);
    (void)::sigaction(signal, &action, nullptr);
}

} // namespace

void secureStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0)
            (void)::open("/dev/null", O_RDWR); // takes the lowest free number: this one
    }
}

void endOnSignals(platform::linux_backend::RunLoop& runLoop) {
    terminationRequest = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const auto end = [](sd_event_source* source, int, std::uint32_t, void*) {
        return sd_event_exit(sd_event_source_get_event(source), EXIT_SUCCESS);
    };
    const int result =
        sd_event_add_io(runLoop.event(), nullptr, terminationRequest, EPOLLIN, end, nullptr);
    if (result < 0)
        platform::fatalError(std::string("signals cannot be watched: ") + std::strerror(-result));
    handle(SIGTERM, requestTermination);
    handle(SIGINT, requestTermination);
    handle(SIGALRM, terminateNow);
    handle(SIGPIPE, SIG_IGN);
}

} // namespace findersync

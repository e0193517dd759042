#include "process/Termination.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace process {

namespace {

constexpr unsigned timeoutInSeconds = 1;

// Signal handlers can reach only globals.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)

/// The eventfd by which the handler wakes the event loop. Never closed: a signal can come at any
/// time.
int terminationRequest = -1;

// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

void terminateNow(int) {
    ::_exit(EXIT_SUCCESS);
}

void requestTermination(int signal) {
    const int savedErrno = errno;
    const std::uint64_t one = 1;
    if (::write(terminationRequest, &one, sizeof one) < 0)
        terminateNow(signal);
    (void)::alarm(timeoutInSeconds);
    errno = savedErrno;
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action{};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    (void)sigemptyset(&action.sa_mask);
    (void)::sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal) {
    struct sigaction action{};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

int endOnSignals(sd_event* event) {
    terminationRequest = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (terminationRequest < 0)
        return -errno;
    const auto end = [](sd_event_source* source, int, std::uint32_t, void*) {
        return sd_event_exit(sd_event_source_get_event(source), EXIT_SUCCESS);
    };
    if (const int result =
            sd_event_add_io(event, nullptr, terminationRequest, EPOLLIN, end, nullptr);
        result < 0)
        return result;
    handle(SIGPIPE, SIG_IGN);
    handle(SIGXFSZ, SIG_IGN);
    handle(SIGALRM, terminateNow);
    handle(SIGINT, requestTermination);
    handle(SIGTERM, requestTermination);
    if (!isIgnored(SIGHUP))
        handle(SIGHUP, requestTermination);
    sigset_t none;
    (void)sigemptyset(&none);
    (void)::sigprocmask(SIG_SETMASK, &none, nullptr);
    return 0;
}

} // namespace process

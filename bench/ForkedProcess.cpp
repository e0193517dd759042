#include "bench/ForkedProcess.h"

#include "bench/SystemCall.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace findersync::bench {

namespace {

constexpr int hasFailed = 2;

[[noreturn]] void perform(const std::function<int()>& work) {
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int code = hasFailed;
    try {
        code = work();
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, error.what());
    }
    (void)std::fflush(nullptr);
    ::_exit(code); // what the bench itself wants done at its end is not this process's business
}

} // namespace

ForkedProcess::ForkedProcess(const std::function<int()>& work) {
    (void)std::fflush(nullptr); // or both would write what is still to be written
    id_ = checked(::fork(), "fork");
    if (id_ == 0)
        perform(work);
}

ForkedProcess::~ForkedProcess() {
    if (id_ < 0)
        return;
    (void)::kill(id_, SIGKILL);
    (void)::waitpid(id_, nullptr, 0);
}

int ForkedProcess::exitCode() {
    int status = 0;
    checked(::waitpid(std::exchange(id_, -1), &status, 0), "waitpid");
    if (!WIFEXITED(status))
        throw std::runtime_error("a part of the bench did not come to its end");
    return WEXITSTATUS(status);
}

} // namespace findersync::bench

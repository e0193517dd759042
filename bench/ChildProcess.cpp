#include "bench/ChildProcess.h"

#include "bench/Pipe.h"
#include "bench/SystemCall.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace findersync::bench {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void execute(std::vector<char*>& arguments, StandardStreams streams,
                          const std::vector<std::string>& environment, int announcement) {
    // When the bench dies, whatever the reason, so does the program.
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)::dup2(streams.output, STDOUT_FILENO);
    (void)::dup2(streams.error, STDERR_FILENO);
    for (const std::string& variable : environment)
        (void)::putenv(const_cast<char*>(variable.c_str()));
    const Clock::time_point now = Clock::now();
    (void)!::write(announcement, &now, sizeof now);
    ::execv(arguments.front(), arguments.data());
    (void)!::write(announcement, "", 1);
    ::_exit(127);
}

std::vector<char*> argumentVector(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    return arguments;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, StandardStreams streams,
                           const std::vector<std::string>& environment) {
    std::vector<char*> arguments = argumentVector(command);
    Pipe announcement; // of the moment when the child executes its program, which closes it
    id_ = checked(::fork(), "fork");
    if (id_ == 0)
        execute(arguments, streams, environment, announcement.writeEnd.get());
    announcement.writeEnd.reset();
    char failed = 0;
    if (::read(announcement.readEnd.get(), &executed_, sizeof executed_) != sizeof executed_ ||
        ::read(announcement.readEnd.get(), &failed, sizeof failed) != 0)
        throw std::runtime_error("cannot execute " + command.front());
}

ChildProcess::~ChildProcess() {
    if (id_ < 0)
        return;
    (void)::kill(id_, SIGKILL);
    (void)::waitpid(id_, nullptr, 0);
}

std::chrono::nanoseconds ChildProcess::processorTime() const {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(id_, &clock) != 0)
        throw std::runtime_error("a program ended before it was told to");
    checked(::clock_gettime(clock, &time), "clock_gettime");
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

void ChildProcess::end() {
    int status = 0;
    checked(::kill(id_, SIGTERM), "kill");
    checked(::waitpid(std::exchange(id_, -1), &status, 0), "waitpid");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != EXIT_SUCCESS)
        throw std::runtime_error("a program did not end well when it was told to");
}

} // namespace findersync::bench

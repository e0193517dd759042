#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace findersync::bench {

/// Descriptors that what a program writes goes to; its errors go to the bench's own by default.
struct StandardStreams {
    int output;
    int error = STDERR_FILENO;
};

/// A program that runs for as long as this object lives, and never longer than the bench itself.
class ChildProcess {
public:
    /// Starts a program: its path, then its arguments. `environment` holds "NAME=value" texts on
    /// top of the bench's own environment.
    explicit ChildProcess(const std::vector<std::string>& command, StandardStreams streams,
                          const std::vector<std::string>& environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] pid_t id() const { return id_; }

    /// The moment just before the program was executed.
    [[nodiscard]] std::chrono::steady_clock::time_point executed() const { return executed_; }

    /// Processor time that the process has used so far, in user mode and in the kernel.
    [[nodiscard]] std::chrono::nanoseconds processorTime() const;

    /// Asks the process to end, waits for it, and throws when it did not end with exit code 0.
    void end();

private:
    pid_t id_ = -1;
    std::chrono::steady_clock::time_point executed_;
};

} // namespace findersync::bench

#pragma once

#include <functional>
#include <sys/types.h>

namespace findersync::bench {

/// A copy of the bench's process that does one piece of work. A process and not a thread: the code
/// under test has a process to itself, and a second thread would make its every allocation dearer.
///
/// It runs for as long as this object lives, and never longer than the bench itself.
class ForkedProcess {
public:
    /// The work gives the process's exit code, or throws: then a complaint is written, and the exit
    /// code is 2.
    explicit ForkedProcess(const std::function<int()>& work);
    ~ForkedProcess();
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    /// Waits until the work is done, and gives the exit code; throws when there is none.
    [[nodiscard]] int exitCode();

private:
    pid_t id_ = -1;
};

} // namespace findersync::bench

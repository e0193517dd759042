#pragma once

#include <sched.h>
#include <sys/types.h>

namespace findersync::bench {

/// Keeps a process, and those that it starts from now on, on one core, for as long as this object
/// lives: the lowest one that it may run on.
class OneCore {
public:
    explicit OneCore(pid_t process);
    ~OneCore();
    OneCore(const OneCore&) = delete;
    OneCore& operator=(const OneCore&) = delete;

private:
    pid_t process_;
    cpu_set_t before_{};
};

} // namespace findersync::bench

#include "bench/OneCore.h"

#include "bench/SystemCall.h"

#include <cstddef>

namespace findersync::bench {

OneCore::OneCore(pid_t process) : process_(process) {
    checked(::sched_getaffinity(process_, sizeof before_, &before_), "sched_getaffinity");
    std::size_t core = 0;
    while (!CPU_ISSET(core, &before_))
        ++core;
    cpu_set_t one{};
    CPU_SET(core, &one);
    checked(::sched_setaffinity(process_, sizeof one, &one), "sched_setaffinity");
}

OneCore::~OneCore() {
    (void)::sched_setaffinity(process_, sizeof before_, &before_);
}

} // namespace findersync::bench

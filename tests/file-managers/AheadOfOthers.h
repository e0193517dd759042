#pragma once

#include <sched.h>

/// Has this process, and what it starts, run ahead of all others where it may: what else the
/// machine does is not to be taken for waiting.
inline void runAheadOfOthers() {
    const sched_param lowest{.sched_priority = 1};
    (void)sched_setscheduler(0, SCHED_RR, &lowest);
}

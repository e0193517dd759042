// In a file of its own, so that a program which outlives a fatal error can bring another one.

#include "platform/recording/Recording.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#ifdef FINDER_SYNC_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace platform {

void fatalError(std::string_view reason) {
    // Death tests see what was printed and logged before the end as well as the reason.
    for (const std::string& call : recording::calls()) {
        if (call.starts_with("print: ") || call.starts_with("NSLog: "))
            (void)std::fprintf(stderr, "%s\n", call.c_str());
    }
    std::string line(reason);
    std::ranges::replace(line, '\n', ' ');
    (void)std::fprintf(stderr, "fatal error: %s\n", line.c_str());
#ifdef FINDER_SYNC_COVERAGE
    __gcov_dump(); // what the child of a death test has visited counts
#endif
    std::abort();
}

} // namespace platform

// In a file of its own, so that tests and fuzzers can link another fatalError.

#include "platform/recording/Recording.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#ifdef FINDER_SYNC_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace platform {

void fatalError(std::string_view reason) {
    // Death tests match the printed and logged lines as well as the reason.
    for (const std::string& call : recording::calls()) {
        if (call.starts_with("print: ") || call.starts_with("NSLog: "))
            (void)std::fprintf(stderr, "%s\n", call.c_str());
    }
    std::string line(reason);
    std::ranges::replace(line, '\n', ' ');
    (void)std::fprintf(stderr, "fatal error: %s\n", line.c_str());
#ifdef FINDER_SYNC_COVERAGE
    __gcov_dump(); // abort would lose the coverage of a death test's child process
#endif
    std::abort();
}

} // namespace platform

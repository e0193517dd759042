#pragma once

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace findersync::fuzz {

/// A copy of standard error: libFuzzer may close the original to silence the target.
// NOLINTNEXTLINE(cert-err58-cpp): a system call throws nothing
inline const int standardError = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);

/// Ends the process with this text, so that libFuzzer keeps the input, unless the condition holds.
inline void require(bool isAsItShouldBe, std::string_view what) {
    if (isAsItShouldBe)
        return;
    (void)::dprintf(standardError, "difference: %.*s\n", static_cast<int>(what.size()),
                    what.data());
    std::abort();
}

} // namespace findersync::fuzz

// In a file of its own, so that a program which outlives a fatal error can bring another one.

#include "platform/System.h"
#include "platform/linux/BufferedOutput.h"
#include "process/StandardStreams.h"

#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>
#include <unistd.h>

namespace platform {

void fatalError(std::string_view reason) {
    linux_backend::flushStandardStreams();
    try {
        linux_backend::writeDiagnostic(linux_backend::Level::Critical,
                                       std::string(program_invocation_short_name) + ": ",
                                       "fatal error: " + std::string(reason));
    } catch (const std::bad_alloc&) {
        // Memory has run out, which is probably what happened in the first place.
        (void)process::writeFully(STDERR_FILENO, program_invocation_short_name);
        (void)process::writeFully(STDERR_FILENO, ": fatal error: no memory\n");
    }
    std::abort();
}

} // namespace platform

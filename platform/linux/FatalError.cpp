// In a file of its own, so that tests and fuzzers can link another fatalError.

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
        // Probably the original error was bad_alloc, too.
        (void)process::writeFully(STDERR_FILENO, program_invocation_short_name);
        (void)process::writeFully(STDERR_FILENO, ": fatal error: no memory\n");
    }
    std::abort();
}

} // namespace platform

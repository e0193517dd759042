// In a file of its own, so that a program which outlives a fatal error can bring another one.

#include "platform/System.h"
#include "platform/linux/StandardStreams.h"

#include <cerrno>
#include <cstdlib>
#include <string>

namespace platform {

void fatalError(std::string_view reason) {
    linux_backend::writeDiagnostic(linux_backend::Level::Critical,
                                   std::string(program_invocation_short_name) + ": ",
                                   "fatal error: " + std::string(reason));
    std::abort();
}

} // namespace platform

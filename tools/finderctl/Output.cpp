#include "tools/finderctl/Output.h"

#include "Names.h"
#include "process/StandardStreams.h"
#include "tools/finderctl/Failure.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace finderctl {

bool print(std::string text) {
    text += '\n';
    const int result = process::writeFully(STDOUT_FILENO, text);
    if (result != 0 && result != EPIPE)
        throw Failure(std::string("standard output takes nothing: ") + std::strerror(result));
    return result == 0;
}

void complain(const std::string& message) {
    (void)process::writeFully(STDERR_FILENO,
                              std::string(findersync::controlProgram) + ": " + message + "\n");
}

} // namespace finderctl

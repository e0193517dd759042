// Takes the place of the platform's own `fatalError`, which the linker then leaves out.

#include "fuzz/FatalError.h"

#include "platform/System.h"

namespace platform {

void fatalError(std::string_view reason) {
    throw findersync::fuzz::FatalError{std::string(reason)};
}

} // namespace platform

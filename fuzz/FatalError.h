#pragma once

#include <string>

namespace findersync::fuzz {

/// Thrown in place of the end of the process, with the reason that it would have given.
struct FatalError {
    std::string reason;
};

} // namespace findersync::fuzz

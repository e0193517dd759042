#pragma once

#include "bench/FileDescriptor.h"

namespace findersync::bench {

/// A pipe that no program inherits.
struct Pipe {
    Pipe();
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

} // namespace findersync::bench

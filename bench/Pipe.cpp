#include "bench/Pipe.h"

#include "bench/SystemCall.h"

#include <array>
#include <fcntl.h>

namespace findersync::bench {

Pipe::Pipe() {
    std::array<int, 2> ends{};
    checked(::pipe2(ends.data(), O_CLOEXEC), "pipe2");
    readEnd = FileDescriptor(ends[0]);
    writeEnd = FileDescriptor(ends[1]);
}

} // namespace findersync::bench

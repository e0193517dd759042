#pragma once

#include "bench/FileDescriptor.h"
#include "bench/SystemCall.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace findersync::bench {

/// Sends what this process writes to one of its standard streams elsewhere, for as long as this
/// object lives.
class Redirection {
public:
    Redirection(int stream, int target)
        : stream_(stream),
          original_(checked(::fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "fcntl")) {
        (void)std::fflush(nullptr);
        checked(::dup2(target, stream_), "dup2");
    }
    ~Redirection() {
        (void)std::fflush(nullptr);
        (void)::dup2(original_.get(), stream_);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    int stream_;
    FileDescriptor original_;
};

} // namespace findersync::bench

#pragma once

#include "process/Descriptor.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace finder_sync {

/// A program that starts the extension anew, run without a shell.
class Restart {
public:
    /// Starts it, in place of one that still runs, which is left to itself. Returns false if it
    /// cannot be started, and `failure` says why.
    [[nodiscard]] bool start(std::vector<std::string> command, std::string& failure);

    /// What it prints, and its end, make this readable; -1 when none runs.
    [[nodiscard]] int output() const { return output_.get(); }

    /// Reads what there is. Returns whether the program has ended; `failure` is then what it has
    /// printed, empty if it has succeeded.
    [[nodiscard]] bool hasEnded(std::string& failure);

private:
    process::Descriptor output_;
    pid_t process_ = -1;
    std::string printed_;
};

} // namespace finder_sync

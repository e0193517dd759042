#pragma once

#include "bench/ChildProcess.h"

#include <cstdint>
#include <string>
#include <vector>

namespace findersync::bench {

/// What bench/run prepares for each bench: a session bus and a configuration directory that belong
/// to nobody else. Refuses to exist without, so that no user's settings are ever touched.
class Session {
public:
    /// Takes the command line "BENCH [--quick] EXTENSION"; throws when it is another, or when the
    /// session has not been prepared.
    Session(int argc, char** argv);

    /// Whether only the working of the bench is of interest, not its figures.
    [[nodiscard]] bool isQuick() const { return isQuick_; }

    /// The command that starts the extension once its settings name the port.
    [[nodiscard]] std::vector<std::string> extension(std::uint16_t port) const;

    /// The command that starts a program of the benches, with the port as its first argument.
    [[nodiscard]] std::vector<std::string> benchProgram(const std::string& name,
                                                        std::uint16_t port) const;

    /// Path of a file that was built for the benches.
    [[nodiscard]] std::string benchFile(const std::string& name) const;

    /// Path for a file of the bench's own.
    [[nodiscard]] std::string privateFile(const std::string& name) const;

private:
    std::string extension_;
    std::string directory_;
    bool isQuick_ = false;
};

/// Runs a bench and gives the exit code of its process: what the bench says, or 2 when it cannot
/// measure. However it goes, the process ends within the given time, and its programs with it.
[[nodiscard]] int runBench(int (*bench)(const Session&), int argc, char** argv,
                           unsigned limitInSeconds);

} // namespace findersync::bench

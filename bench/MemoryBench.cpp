// memory-bench: the proportional set size of the idle extension beside that of an idle empty
// program, once with both running and once with each alone.

#include "bench/LoadedObjects.h"
#include "bench/Loopback.h"
#include "bench/Pipe.h"
#include "bench/Report.h"
#include "bench/Session.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace findersync::bench {

namespace {

/// What is left to do after connecting takes a few milliseconds.
constexpr std::chrono::milliseconds untilIdle{200};

/// Proportional set size of a process in KiB: its own pages, and its share of those that it has in
/// common with others.
double proportionalSetSize(pid_t process) {
    std::ifstream rollup("/proc/" + std::to_string(process) + "/smaps_rollup");
    for (std::string key; rollup >> key;) {
        double value = 0;
        if (key == "Pss:" && rollup >> value)
            return value;
    }
    throw std::runtime_error("the memory of a process cannot be read");
}

/// A program that has connected to the listener and now waits.
class IdleProgram {
public:
    IdleProgram(const std::vector<std::string>& command, const LoopbackListener& listener)
        : program_(command, {.output = pipe_.writeEnd.get()}), connection_(listener.accept()) {
        std::this_thread::sleep_for(untilIdle);
    }

    [[nodiscard]] double memory() const { return proportionalSetSize(program_.id()); }

private:
    Pipe pipe_; // large enough for all that is printed here
    ChildProcess program_;
    FileDescriptor connection_;
};

int run(const Session& session) {
    const LoopbackListener listener;
    const auto emptyCommand = session.benchProgram("empty-program", listener.port());
    const auto command = session.extension(listener.port());
    requireSameObjects(emptyCommand, command, listener);

    const int repetitions = session.isQuick() ? 1 : 5;
    std::vector<double> alone;
    std::vector<double> together;
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        const double emptyAlone = IdleProgram(emptyCommand, listener).memory();
        const double extensionAlone = IdleProgram(command, listener).memory();
        const IdleProgram emptyProgram(emptyCommand, listener);
        const IdleProgram extension(command, listener);
        const double emptyBeside = emptyProgram.memory();
        const double extensionBeside = extension.memory();
        alone.push_back(extensionAlone / emptyAlone);
        together.push_back(extensionBeside / emptyBeside);
        (void)std::fprintf(stderr,
                           "memory: alone, empty program %.0f KiB, extension %.0f KiB; both at "
                           "once, %.0f KiB, %.0f KiB\n",
                           emptyAlone, extensionAlone, emptyBeside, extensionBeside);
    }
    // What counts is each alone: nobody runs the empty program beside the extension. Both at once
    // share what they have in common, so that what they do not weighs more.
    return report(
        {{.what = "memory when idle, each alone", .measured = median(alone), .atMost = 1.3},
         {.what = "memory when idle, both at once", .measured = median(together)}},
        !session.isQuick());
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 120);
}

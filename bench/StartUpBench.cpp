// start-up-bench: how long the extension takes from its execution until it has connected to its
// companion application, beside an empty program that takes a bus name and connects.

#include "bench/LoadedObjects.h"
#include "bench/Loopback.h"
#include "bench/Pipe.h"
#include "bench/Report.h"
#include "bench/Session.h"

#include <chrono>
#include <cstdio>

namespace findersync::bench {

namespace {

/// Milliseconds from the execution of the program until it has connected to the listener.
double measure(const std::vector<std::string>& command, const LoopbackListener& listener) {
    const Pipe pipe; // large enough for all that is printed here
    ChildProcess program(command, {.output = pipe.writeEnd.get()});
    const FileDescriptor connection = listener.accept();
    const auto connected = std::chrono::steady_clock::now();
    program.end();
    return std::chrono::duration<double, std::milli>(connected - program.executed()).count();
}

int run(const Session& session) {
    const LoopbackListener listener;
    const auto emptyProgram = session.benchProgram("empty-program", listener.port());
    const auto extension = session.extension(listener.port());
    requireSameObjects(emptyProgram, extension, listener);

    const int repetitions = session.isQuick() ? 1 : 100;
    std::vector<double> ratios;
    std::vector<double> emptyTimes;
    std::vector<double> times;
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        emptyTimes.push_back(measure(emptyProgram, listener));
        times.push_back(measure(extension, listener));
        ratios.push_back(times.back() / emptyTimes.back());
    }
    (void)std::fprintf(stderr, "start-up: empty program %.2f ms, extension %.2f ms\n",
                       median(emptyTimes), median(times));
    return report({{.what = "start-up, to the accepted connection",
                    .measured = median(ratios),
                    .atMost = 1.3}},
                  !session.isQuick());
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 120);
}

// inbound-bench: how many inbound lines per second the extension handles, beside a bare loop that
// receives and writes the same bytes.

#include "bench/Companion.h"
#include "bench/Loopback.h"
#include "bench/Pipe.h"
#include "bench/Report.h"
#include "bench/Session.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

namespace findersync::bench {

namespace {

// The bursts in flight stay below the size of a loopback segment: one that is cut in two would be
// a message cut in two, which ends the extension.
constexpr std::size_t inFlight = 32;

/// The load that the requirement is about: a write for every burst.
constexpr Companion::Pace burstByBurst = {.burstsPerWrite = 1, .burstsInFlight = inFlight};
/// A sender that is far ahead of its reader, which then never waits for bytes.
constexpr Companion::Pace eightAtOnce = {.burstsPerWrite = 8, .burstsInFlight = inFlight};
constexpr Companion::Pace oneByOne = {.burstsPerWrite = 1, .burstsInFlight = 1};
constexpr std::size_t warmUpBursts = 200;

struct Measurement {
    double linesPerSecond = 0;
    double processorTimePerLine = 0; ///< nanoseconds
    double readsPerEvent = 0;
};

/// Sends a few bursts one after the other, and makes sure that each leaves the expected trace.
void warmUp(Companion& companion, const Traffic& traffic) {
    companion.send(traffic, 1, oneByOne); // the first one makes the root folders known
    const std::size_t before = companion.trace().bytes();
    companion.send(traffic, warmUpBursts, oneByOne);
    if (companion.trace().bytes() - before != warmUpBursts * traffic.trace.size())
        throw std::runtime_error("a burst leaves another trace than expected");
}

/// The given command's program must connect to the listener and trace what it receives.
Measurement measure(const std::vector<std::string>& command, const LoopbackListener& listener,
                    const Traffic& traffic, std::size_t bursts, Companion::Pace pace) {
    Pipe pipe;
    ChildProcess program(command, {.output = pipe.writeEnd.get()});
    pipe.writeEnd.reset();
    Companion companion(listener.accept(), std::move(pipe.readEnd));
    warmUp(companion, traffic);

    const std::size_t eventsBefore = companion.trace().events();
    const auto processorTimeBefore = program.processorTime();
    const auto begin = std::chrono::steady_clock::now();
    companion.send(traffic, bursts, pace);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    const std::chrono::duration<double, std::nano> processorTime =
        program.processorTime() - processorTimeBefore;

    const auto lines = static_cast<double>(bursts * Traffic::linesPerBurst);
    const auto events = static_cast<double>(companion.trace().events() - eventsBefore);
    program.end();
    return {.linesPerSecond = lines / seconds.count(),
            .processorTimePerLine = processorTime.count() / lines,
            .readsPerEvent = static_cast<double>(bursts) / events};
}

struct Ratios {
    double linesPerSecond = 0;
    double processorTimePerLine = 0;
};

/// The extension beside the bare loop: the medians of the ratios of runs that follow each other.
Ratios compare(const Session& session, const Traffic& traffic, Companion::Pace pace) {
    const std::size_t bursts = session.isQuick() ? 400 : 20'000;
    const int repetitions = session.isQuick() ? 1 : 11;
    const LoopbackListener listener;
    auto bareLoop = session.benchProgram("bare-loop", listener.port());
    bareLoop.emplace_back(traffic.name);
    const auto extension = session.extension(listener.port());

    std::vector<double> speed;
    std::vector<double> processorTime;
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        const Measurement bare = measure(bareLoop, listener, traffic, bursts, pace);
        const Measurement real = measure(extension, listener, traffic, bursts, pace);
        speed.push_back(real.linesPerSecond / bare.linesPerSecond);
        processorTime.push_back(real.processorTimePerLine / bare.processorTimePerLine);
        (void)std::fprintf(stderr,
                           "inbound %s, %zu bursts a write: bare loop %.0f ns a line, %.0f ns of "
                           "processor time; extension %.0f ns, %.0f ns, %.1f reads an event\n",
                           std::string(traffic.name).c_str(), pace.burstsPerWrite,
                           1e9 / bare.linesPerSecond, bare.processorTimePerLine,
                           1e9 / real.linesPerSecond, real.processorTimePerLine,
                           real.readsPerEvent);
    }
    return {.linesPerSecond = median(speed), .processorTimePerLine = median(processorTime)};
}

int run(const Session& session) {
    std::vector<Figure> figures;
    for (const std::string name : {"ascii", "non-ascii"}) {
        const Traffic traffic = trafficWithName(name).value();
        const Ratios required = compare(session, traffic, burstByBurst);
        const Ratios flooded = compare(session, traffic, eightAtOnce);
        figures.push_back({.what = "inbound, " + name + ", lines per second",
                           .measured = required.linesPerSecond,
                           .atLeast = 0.65});
        figures.push_back({.what = "inbound, " + name + ", processor time per line",
                           .measured = required.processorTimePerLine});
        figures.push_back({.what = "inbound, " + name + ", 8 bursts a write, lines per second",
                           .measured = flooded.linesPerSecond});
        figures.push_back(
            {.what = "inbound, " + name + ", 8 bursts a write, processor time per line",
             .measured = flooded.processorTimePerLine});
    }
    return report(figures, !session.isQuick());
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 300);
}

// badge-bench: what a badge request costs, asked of the object itself, beside writing the same log
// lines bare; and how that grows with the number of root folders.

#include "bench/BadgeMix.h"
#include "bench/ForkedProcess.h"
#include "bench/LineFit.h"
#include "bench/LogSink.h"
#include "bench/Redirection.h"
#include "bench/Report.h"
#include "bench/Session.h"
#include "bench/SystemCall.h"
#include "extension/FinderSync.h"
#include "platform/linux/BufferedOutput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <list>
#include <stdexcept>
#include <unistd.h>

namespace findersync::bench {

namespace {

/// How a log line begins: with a level where standard error is a journal, otherwise with the time.
/// A process decides that once, so each form is measured in a process of its own.
enum class Form { Journal, Plain };

constexpr std::array<const char*, 3> mixes = {"ascii", "composed", "decomposed"};
constexpr std::array<std::size_t, 7> rootCounts = {1, 3, 10, 30, 100, 300, 1'000};
constexpr std::array<std::size_t, 4> judgedRootCounts = {1, 10, 100, 1'000};
constexpr std::size_t linesPerRepetition = 4'000;

/// What starts a line of that form, for as long as the present second lasts; its length stays.
std::string linePrefix(Form form) {
    if (form == Form::Journal)
        return "<6>";
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    (void)::localtime_r(&now, &local);
    char date[sizeof "2026-01-31 12:00:00.000 "];
    const std::size_t size = std::strftime(date, sizeof date, "%F %T.000 ", &local);
    return std::string(date, size) + program_invocation_short_name + "[" +
           std::to_string(::getpid()) + "] ";
}

/// The log lines of one badge request, ready to be written.
class BareLog {
public:
    BareLog(const std::string& prefix, const BadgeMix& mix, const std::string& url) {
        lines_.push_back(prefix + "requestBadgeIdentifierForURL: " + url + "\n");
        for (const std::string& root : mix.roots) {
            lines_.push_back(prefix + "curpath: " + root + "\n");
            lines_.push_back(prefix + "path: " + mix.item + "\n");
        }
        for (const std::string& line : lines_)
            bytes_ += line.size();
    }

    void write() const {
        for (const std::string& line : lines_) {
            if (::write(STDERR_FILENO, line.data(), line.size()) !=
                static_cast<ssize_t>(line.size()))
                throw std::runtime_error("a log line was not written whole");
        }
    }

    [[nodiscard]] std::size_t lines() const { return lines_.size(); }
    [[nodiscard]] std::size_t bytes() const { return bytes_; }

private:
    std::vector<std::string> lines_;
    std::size_t bytes_ = 0;
};

struct Measurement {
    std::string_view mix;
    std::size_t rootCount = 0;
    double bare = 0;      ///< nanoseconds per request, the median
    double extension = 0; ///< the same
    double ratio = 0;     ///< the median of the ratios of repetitions that follow each other
};

/// One item with its root folders, asked about by turns.
class Case {
public:
    Case(const BadgeMix& mix, Form form)
        : mix_(mix.name),
          rootCount_(mix.roots.size()),
          item_(platform::fileURLWithPath(mix.item)),
          log_(linePrefix(form), mix, item_->description()) {
        extension_.setPathsOfRootFolders(mix.roots);
    }

    /// Writes the log lines bare, then has the extension write them.
    void repeat(const LogSink& sink);

    [[nodiscard]] Measurement result() const {
        return {.mix = mix_,
                .rootCount = rootCount_,
                .bare = median(bareTimes_),
                .extension = median(times_),
                .ratio = median(ratios_)};
    }

private:
    std::string_view mix_;
    std::size_t rootCount_;
    FinderSync::URL item_;
    BareLog log_;
    FinderSync extension_;
    std::vector<double> bareTimes_, times_, ratios_;
};

/// Nanoseconds per request. Each request is to leave that many bytes in the log.
template <typename Request>
double measure(const LogSink& sink, std::size_t requests, std::size_t bytes, Request request) {
    const std::uint64_t expected = sink.drained() + requests * bytes;
    const auto begin = std::chrono::steady_clock::now();
    for (std::size_t number = 0; number < requests; ++number)
        request();
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begin;
    sink.requireDrained(expected);
    return time.count() / static_cast<double>(requests);
}

void Case::repeat(const LogSink& sink) {
    const std::size_t requests = std::max<std::size_t>(1, linesPerRepetition / log_.lines());
    bareTimes_.push_back(measure(sink, requests, log_.bytes(), [&] { log_.write(); }));
    times_.push_back(measure(sink, requests, log_.bytes(), [&] {
        extension_.requestBadgeIdentifierForURL(*item_);
        platform::linux_backend::flushStandardStreams(); // as the run loop does before it waits
    }));
    ratios_.push_back(times_.back() / bareTimes_.back());
}

/// All mixes, each with all numbers of root folders, with the log going to a sink. They take turns,
/// so that whatever else goes on in the machine meets them all alike.
std::vector<Measurement> measureAll(Form form, int repetitions) {
    const LogSink sink;
    if (form == Form::Journal && ::setenv("JOURNAL_STREAM", sink.journalStream().c_str(), 1) != 0)
        throw std::runtime_error("the environment cannot be changed");
    const Redirection log(STDERR_FILENO, sink.descriptor());
    std::list<Case> cases;
    for (const char* mix : mixes) {
        for (const std::size_t count : rootCounts)
            cases.emplace_back(badgeMix(mix, count), form);
    }
    for (; repetitions > 0; --repetitions) {
        for (Case& test : cases)
            test.repeat(sink);
    }
    std::vector<Measurement> measurements;
    for (const Case& test : cases)
        measurements.push_back(test.result());
    return measurements;
}

void addRatios(std::vector<Figure>& figures, const std::vector<Measurement>& measurements,
               Form form) {
    for (const Measurement& measurement : measurements) {
        (void)std::fprintf(stderr, "badge %s, %zu roots: bare %.0f ns, extension %.0f ns\n",
                           std::string(measurement.mix).c_str(), measurement.rootCount,
                           measurement.bare, measurement.extension);
        if (std::ranges::count(judgedRootCounts, measurement.rootCount) == 0)
            continue;
        const bool isJournal = form == Form::Journal;
        figures.push_back({.what = "badge request, " + std::string(measurement.mix) + ", " +
                                   std::to_string(measurement.rootCount) + " roots" +
                                   (isJournal ? "" : ", log with time"),
                           .measured = measurement.ratio,
                           .atMost = isJournal ? std::optional(1.25) : std::nullopt});
    }
}

/// What each further root folder costs, beside the two log lines that it leaves.
void addGrowth(std::vector<Figure>& figures, const std::vector<Measurement>& measurements,
               std::string_view mix) {
    std::vector<Point> bare;
    std::vector<Point> real;
    for (const Measurement& measurement : measurements) {
        if (measurement.mix != mix)
            continue;
        const auto count = static_cast<double>(measurement.rootCount);
        bare.push_back({.x = count, .y = measurement.bare});
        real.push_back({.x = count, .y = measurement.extension});
    }
    const LineFit fit = fitLine(real);
    const std::string what = "badge request, " + std::string(mix) + ", per further root";
    figures.push_back({.what = what, .measured = fit.slope / fitLine(bare).slope});
    figures.push_back(
        {.what = what + ", r squared", .measured = fit.rSquared, .atLeast = 0.99, .decimals = 4});
}

int measureForm(const Session& session, Form form) {
    const std::vector<Measurement> measurements = measureAll(form, session.isQuick() ? 1 : 31);
    std::vector<Figure> figures;
    addRatios(figures, measurements, form);
    if (form == Form::Journal) {
        for (const char* mix : mixes)
            addGrowth(figures, measurements, mix);
    }
    return report(figures, !session.isQuick());
}

int run(const Session& session) {
    int worst = EXIT_SUCCESS;
    for (const Form form : {Form::Journal, Form::Plain}) {
        ForkedProcess process([&] { return measureForm(session, form); });
        worst = std::max(worst, process.exitCode());
    }
    return worst;
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 180);
}

// bus-bench: round trips over the session bus to the real process, with its log on, beside round
// trips to an empty service.

#include "bench/BusAnswers.h"
#include "bench/BusCaller.h"
#include "bench/ChildProcess.h"
#include "bench/LogSink.h"
#include "bench/Loopback.h"
#include "bench/OneCore.h"
#include "bench/Report.h"
#include "bench/Session.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <unistd.h>

namespace findersync::bench {

namespace {

constexpr const char* extensionName = FINDER_SYNC_GROUP ".FinderSync";
constexpr const char* emptyServiceName = FINDER_SYNC_GROUP ".EmptyService";

const std::string rootFolder = "/home/anna/Documents/Customers";
const std::string rootURL = "file:///home/anna/Documents/Customers";
const std::string itemURL = "file:///home/anna/Documents/Customers/Quarterly%20reports/2026";

using Answer = BusCaller::Answer;

struct Case {
    const char* what;
    std::vector<std::string> roots;
    Answer (BusCaller::*call)(const std::string& service, const std::string& url) const;
    const std::string& url;
    Answer answer;
};

/// A program that serves on the bus, with both its standard streams going to the sink.
class Service {
public:
    Service(const std::vector<std::string>& command, const LoopbackListener& listener,
            const LogSink& log)
        : program_(command, {.output = log.descriptor(), .error = log.descriptor()},
                   {"JOURNAL_STREAM=" + log.journalStream()}),
          connection_(listener.accept()) {}

private:
    ChildProcess program_;
    FileDescriptor connection_; ///< what it takes for its companion application
};

/// Microseconds of one round trip, from the making of the call to the end of its answer's reading.
double measure(const BusCaller& caller, const Case& test, const char* service) {
    const auto begin = std::chrono::steady_clock::now();
    const Answer answer = (caller.*test.call)(service, test.url);
    const auto end = std::chrono::steady_clock::now();
    if (answer != test.answer)
        throw std::runtime_error(std::string(service) + " gives another answer than expected");
    return std::chrono::duration<double, std::micro>(end - begin).count();
}

void announce(const BusCaller& caller, const std::vector<std::string>& roots) {
    caller.setProperty(extensionName, "pathsOfRootFolders", roots);
    caller.setProperty(extensionName, "shareViaUrlTitle", menuEntries[0].title);
    caller.setProperty(extensionName, "backupTitle", menuEntries[1].title);
    caller.setProperty(extensionName, "displayBackup", std::int64_t{1});
}

Figure compare(const Session& session, const Case& test) {
    const LoopbackListener listener;
    const LogSink log;
    auto emptyService = session.benchProgram("empty-service", listener.port());
    emptyService.push_back(test.answer.front());
    const Service bareService(emptyService, listener, log);
    const Service extension(session.extension(listener.port()), listener, log);
    const BusCaller caller;
    announce(caller, test.roots);

    const std::uint64_t loggedBefore = log.drained();
    std::vector<double> bare;
    std::vector<double> real;
    for (int left = session.isQuick() ? 50 : 5'000; left > 0; --left) {
        bare.push_back(measure(caller, test, emptyServiceName));
        real.push_back(measure(caller, test, extensionName));
    }
    const auto logged = static_cast<double>(log.drained() - loggedBefore);
    (void)std::fprintf(stderr,
                       "%s: empty service %.1f us, extension %.1f us, %.0f bytes logged a "
                       "call\n",
                       test.what, median(bare), median(real),
                       logged / static_cast<double>(real.size()));
    if (logged == 0)
        throw std::runtime_error("the extension does not log");
    return {.what = test.what, .measured = median(real) / median(bare), .atMost = 1.3};
}

std::vector<std::string> tenOtherRoots() {
    std::vector<std::string> roots;
    for (char number = '0'; number <= '9'; ++number)
        roots.push_back(rootFolder + "/Quarterly reports/202" + number + " and before");
    return roots;
}

Answer offeredMenu() {
    Answer texts;
    for (const MenuEntry& entry : menuEntries)
        texts.insert(texts.end(), {entry.title, entry.action, entry.image});
    return texts;
}

int run(const Session& session) {
    const std::vector<Case> cases = {
        {.what = "bus, a badge, 1 root that matches",
         .roots = {rootFolder},
         .call = &BusCaller::requestBadge,
         .url = rootURL,
         .answer = {badgeIdentifier}},
        {.what = "bus, a badge, 10 roots that do not",
         .roots = tenOtherRoots(),
         .call = &BusCaller::requestBadge,
         .url = itemURL,
         .answer = {""}},
        {.what = "bus, a menu of two entries",
         .roots = {rootFolder},
         .call = &BusCaller::menu,
         .url = itemURL,
         .answer = offeredMenu()},
    };
    // Caller, daemon and service take turns anyway. Where the system puts each of them would make
    // a round trip half as long or twice as long, and that changes by the minute.
    const OneCore daemon(BusCaller().daemon());
    const OneCore everythingElse(::getpid());
    std::vector<Figure> figures;
    for (const Case& test : cases)
        figures.push_back(compare(session, test));
    return report(figures, !session.isQuick());
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 120);
}

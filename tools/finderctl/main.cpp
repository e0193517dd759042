// finderctl: a Finder for the terminal. It drives the running extension over the session bus, as a
// file manager would.

#include "process/StandardStreams.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>

namespace {

using finderctl::ExitCode;

constexpr int codeOf(ExitCode exitCode) {
    return static_cast<int>(exitCode);
}

void describe(CLI::App& app, finderctl::Invocation& invocation) {
    app.set_version_flag("--version", "finderctl " FINDER_SYNC_VERSION);
    app.add_flag("--json", invocation.isJSON, "Print JSON");
    app.require_subcommand(1);
    app.fallthrough(); // global options may follow the subcommand
    finderctl::addState(app, invocation);
    finderctl::addBadge(app, invocation);
    finderctl::addMenu(app, invocation);
    finderctl::addClick(app, invocation);
    finderctl::addObserve(app, invocation);
    finderctl::addUnobserve(app, invocation);
    finderctl::addMonitor(app, invocation);
    finderctl::addRestart(app, invocation);
    app.footer("Exit codes: 0 done, 1 refused or failed, 2 wrong usage, 3 the extension is not "
               "running.");
}

int run(const finderctl::Invocation& invocation) {
    try {
        return invocation.run();
    } catch (const finderctl::Failure& failure) {
        finderctl::complain(failure.what());
        return codeOf(failure.exitCode());
    } catch (const std::exception& exception) {
        finderctl::complain(exception.what());
        return codeOf(ExitCode::Failed);
    }
}

} // namespace

int main(int argc, char** argv) {
    process::secureStandardDescriptors();
    // A reader that has gone is told by the write itself.
    (void)std::signal(SIGPIPE, SIG_IGN);
    CLI::App app("A Finder for the terminal: drives the running extension as a file manager would.",
                 "finderctl");
    finderctl::Invocation invocation;
    describe(app, invocation);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : codeOf(ExitCode::Usage);
    }
    return run(invocation);
}

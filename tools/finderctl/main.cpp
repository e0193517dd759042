// finderctl: a Finder for the terminal. It drives the running extension over the session bus, as a
// file manager would.

#include "Names.h"
#include "process/StandardStreams.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <getopt.h>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>

namespace {

using finderctl::ExitCode;

constexpr int codeOf(ExitCode exitCode) {
    return static_cast<int>(exitCode);
}

/// The command line, apart from the name of the subcommand.
struct Arguments {
    finderctl::Form form = finderctl::Form::Text;
    std::string kind;       ///< Empty when --kind was not given.
    finderctl::Items items; ///< With the selector as the first one for "click".
};

int runMenu(const Arguments& arguments) {
    return finderctl::menu(arguments.kind.empty() ? finderctl::menuKinds.front() : arguments.kind,
                           arguments.items, arguments.form);
}

int runClick(const Arguments& arguments) {
    return finderctl::click(arguments.items.front(),
                            {arguments.items.begin() + 1, arguments.items.end()});
}

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

struct Subcommand {
    std::string_view name;
    std::string_view operands;
    std::string_view summary;
    std::size_t minimum; ///< Number of operands.
    std::size_t maximum;
    int (*run)(const Arguments& arguments);
};

constexpr Subcommand subcommands[] = {
    {"state", "", "Print all properties of the extension", 0, 0,
     [](const Arguments& arguments) { return finderctl::state(arguments.form); }},
    {"badge", "ITEM...", "Print which badge items carry", 1, unlimited,
     [](const Arguments& arguments) { return finderctl::badge(arguments.items, arguments.form); }},
    {"menu", "[ITEM...]", "Print what the extension adds to the menu on a selection", 0, unlimited,
     runMenu},
    {"click", "SELECTOR [ITEM...]", "Pick the entry of an action, with a selection", 1, unlimited,
     runClick},
    {"observe", "ITEM...", "Tell that the user starts viewing directories", 1, unlimited,
     [](const Arguments& arguments) { return finderctl::observe(arguments.items); }},
    {"unobserve", "ITEM...", "Tell that the user stops viewing directories", 1, unlimited,
     [](const Arguments& arguments) { return finderctl::unobserve(arguments.items); }},
    {"monitor", "", "Print changes of the extension's properties until interrupted", 0, 0,
     [](const Arguments& arguments) { return finderctl::monitor(arguments.form); }},
    {"restart", "", "End the extension and have the bus start it anew, so that it connects anew", 0,
     0, [](const Arguments&) { return finderctl::restart(); }},
};

constexpr const char* helpOnOptions = R"(usage: finderctl [OPTION]... SUBCOMMAND [ARGUMENT]...

A Finder for the terminal: drives the running extension as a file manager would.
An ITEM is a path or a URL. A SELECTOR is that of an action, such as backupClicked:.

Options:
  --json         Print JSON
  --kind KIND    Where the menu opens: items (default), container, sidebar or toolbar
  -h, --help     Show this help
  --version      Show the version

Subcommands:
)";

std::string help() {
    constexpr std::size_t column = 32;
    std::string text = helpOnOptions;
    for (const Subcommand& subcommand : subcommands) {
        std::string synopsis = "  ";
        synopsis.append(subcommand.name).append(" ").append(subcommand.operands);
        synopsis.resize(column, ' ');
        text.append(synopsis).append(subcommand.summary).append("\n");
    }
    return text + "\nExit codes: 0 done, 1 refused or failed, 2 wrong usage, 3 the extension is "
                  "not running.";
}

[[noreturn]] void exitWithUsageError(const std::string& message) {
    finderctl::complain(message + "; see finderctl --help");
    std::exit(codeOf(ExitCode::Usage));
}

void takeKind(Arguments& arguments, const char* kind) {
    if (std::ranges::find(finderctl::menuKinds, std::string_view(kind)) ==
        finderctl::menuKinds.end())
        exitWithUsageError(std::string("unknown kind '") + kind + "'");
    arguments.kind = kind;
}

/// Reads the command line; ends the process when that is all there is to do.
const Subcommand& parse(int argc, char** argv, Arguments& arguments) {
    constexpr option options[] = {{"json", no_argument, nullptr, 'j'},
                                  {"kind", required_argument, nullptr, 'k'},
                                  {"help", no_argument, nullptr, 'h'},
                                  {"version", no_argument, nullptr, 'v'},
                                  {}};
    char name[] = "finderctl"; // not the path, in getopt_long's messages
    argv[0] = name;
    for (int found = 0; (found = ::getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
        switch (found) {
        case 'j':
            arguments.form = finderctl::Form::JSON;
            break;
        case 'k':
            takeKind(arguments, optarg);
            break;
        case 'h':
            finderctl::print(help());
            std::exit(EXIT_SUCCESS);
        case 'v':
            finderctl::print(std::string("finderctl ") + findersync::version);
            std::exit(EXIT_SUCCESS);
        default: // getopt_long has named the option
            exitWithUsageError("wrong usage");
        }
    }
    if (optind == argc)
        exitWithUsageError("a command is missing");
    const std::string command = argv[optind];
    const auto* const subcommand = std::ranges::find(subcommands, command, &Subcommand::name);
    if (subcommand == std::end(subcommands))
        exitWithUsageError("unknown command '" + command + "'");
    arguments.items.assign(argv + optind + 1, argv + argc);
    if (arguments.items.size() < subcommand->minimum ||
        arguments.items.size() > subcommand->maximum)
        exitWithUsageError(std::string("too ") +
                           (arguments.items.size() < subcommand->minimum ? "few" : "many") +
                           " arguments for '" + command + "'");
    if (!arguments.kind.empty() && command != "menu")
        exitWithUsageError("--kind is for 'menu' only");
    return *subcommand;
}

} // namespace

int main(int argc, char** argv) {
    process::secureStandardDescriptors();
    // Writing to a pipe that nobody reads fails with EPIPE instead.
    (void)std::signal(SIGPIPE, SIG_IGN);
    try {
        Arguments arguments;
        const Subcommand& subcommand = parse(argc, argv, arguments);
        return subcommand.run(arguments);
    } catch (const finderctl::Failure& failure) {
        finderctl::complain(failure.what());
        return codeOf(failure.exitCode());
    } catch (const std::exception& exception) {
        finderctl::complain(exception.what());
        return codeOf(ExitCode::Failed);
    }
}

// finderctl: a Finder for the terminal. It drives the running extension over the session bus, as a
// file manager would.

#include "Names.h"
#include "process/StandardStreams.h"
#include "tools/console/Text.h"
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
#include <systemd/sd-bus.h>

namespace {

using finderctl::Arguments;
using finderctl::ExitCode;

constexpr int codeOf(ExitCode exitCode) {
    return static_cast<int>(exitCode);
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
    {"state", "", "Print all properties of the extension", 0, 0, finderctl::state},
    {"badge", "ITEM...", "Print which badge items carry", 1, unlimited, finderctl::badge},
    {"menu", "[--kind KIND] [ITEM...]", "Print what it adds to the menu on a selection", 0,
     unlimited, finderctl::menu},
    {"click", "SELECTOR [ITEM...]", "Pick the entry of an action, with a selection", 1, unlimited,
     finderctl::click},
    {"observe", "ITEM...", "Tell that the user starts viewing directories", 1, unlimited,
     finderctl::observe},
    {"unobserve", "ITEM...", "Tell that the user stops viewing directories", 1, unlimited,
     finderctl::unobserve},
    {"monitor", "", "Print what changes until interrupted", 0, 0, finderctl::monitor},
    {"restart", "", "End the extension and start it anew, so that it connects anew", 0, 0,
     finderctl::restart},
    {"doctor", "", "Find out what keeps badges and menus from being shown", 0, 0,
     finderctl::doctor},
};

constexpr const char* helpOnOptions = R"( [OPTION]... SUBCOMMAND [ARGUMENT]...

A Finder for the terminal: drives the running extension as a file manager would.
An ITEM is a path or a URL. A SELECTOR is that of an action, such as backupClicked:.

Options:
  --group GROUP  Ask another product's extension, GROUP.FinderSync on the session bus
  --json         Print JSON
  --kind KIND    Where the menu opens: items (default), container, sidebar or toolbar
  -h, --help     Show this help
  --version      Show the version

Subcommands:
)";

std::string help() {
    constexpr std::size_t column = 34;
    std::string text = std::string("usage: ") + findersync::controlProgram + helpOnOptions;
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
    finderctl::complain(message + "; see " + findersync::controlProgram + " --help");
    std::exit(codeOf(ExitCode::Usage));
}

void takeKind(Arguments& arguments, const char* kind) {
    if (std::ranges::find(finderctl::menuKinds, std::string_view(kind)) ==
        finderctl::menuKinds.end())
        exitWithUsageError(std::string("unknown kind '") + kind + "'");
    arguments.kind = kind;
}

void takeGroup(Arguments& arguments, const char* group) {
    arguments.busName = std::string(group) + ".FinderSync";
    if (sd_bus_service_name_is_valid(arguments.busName.c_str()) <= 0)
        exitWithUsageError("'" + console::printable(group) + "' is no application group");
}

/// Reads the command line; ends the process when that is all there is to do.
const Subcommand& parse(int argc, char** argv, Arguments& arguments) {
    constexpr option options[] = {
        {"group", required_argument, nullptr, 'g'}, {"json", no_argument, nullptr, 'j'},
        {"kind", required_argument, nullptr, 'k'},  {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},     {}};
    std::string name = findersync::controlProgram; // not the path, in getopt_long's messages
    argv[0] = name.data();
    for (int found = 0; (found = ::getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
        switch (found) {
        case 'g':
            takeGroup(arguments, optarg);
            break;
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
            finderctl::print(std::string(findersync::controlProgram) + " " + findersync::version);
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
        Arguments arguments{.busName = findersync::busName, .kind = {}, .items = {}};
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

// companion: a companion application for the development of the extension. It sends what it is
// told to, and shows what comes back.

#include "Names.h"
#include "finder_sync_companion/Settings.h"
#include "process/StandardStreams.h"
#include "process/SystemdHandles.h"
#include "process/Termination.h"
#include "tools/companion/Companion.h"
#include "tools/companion/Follower.h"
#include "tools/companion/Screen.h"
#include "tools/console/Text.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr int usageError = 2;

struct Options {
    std::uint16_t port = 61842;
    bool isPadded = false;
    bool isNotPadded = false;
    bool writesSettings = false;
    finder_sync::Settings settings;
    companion::Color color = companion::Color::Automatic;
    std::vector<std::string> commands;
    std::string follow; ///< Path of a named pipe, empty for none.
};

constexpr const char* helpOnOptions = R"( [OPTION]...

A companion application for development: listens on 127.0.0.1 for the extension, sends it what the
commands on standard input say, and prints the click reports that come back, one JSON object a line.
"rlwrap" before its name edits lines on a terminal and keeps a history.

Options:
  --port N               Port to listen on; 0 takes a free one (default 61842)
  --pad                  Pad each line to the 1,024 bytes that the extension reads at once
                         (default, except on a terminal)
  --no-pad               Do not pad lines
  --write-settings       Write the port into the settings of the extension first
  --set KEY=VALUE        One more setting to write; may be given repeatedly
  --color WHEN           Color the output: auto, always or never
  -c, --command LINE     A command to start with; may be given repeatedly
  --follow PIPE          Show the lines that are written to this named pipe too, such as the trace
                         of the extension
  -h, --help             Show this help
  --version              Show the version

)";

void printHelp() {
    const std::string text = std::string("usage: ") + findersync::companionProgram + helpOnOptions +
                             "Settings:  $XDG_CONFIG_HOME/" + findersync::applicationGroup +
                             "/settings.json\n\nCommands:\n" + companion::helpOnCommands();
    (void)process::writeFully(STDOUT_FILENO, text);
}

[[noreturn]] void exitWithUsageError(const std::string& message) {
    (void)process::writeFully(STDERR_FILENO, std::string(findersync::companionProgram) + ": " +
                                                 message + "; see " + findersync::companionProgram +
                                                 " --help\n");
    std::exit(usageError);
}

template <typename Number> std::optional<Number> numberOf(std::string_view text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return stop == end && error == std::errc() ? std::optional(number) : std::nullopt;
}

/// Adds a setting of the form KEY=VALUE.
void addSetting(std::string_view keyAndValue, finder_sync::Settings& settings) {
    const std::size_t separator = keyAndValue.find('=');
    if (separator == std::string_view::npos)
        exitWithUsageError("--set: \"" + console::printable(keyAndValue) +
                           "\" is not of the form KEY=VALUE");
    const std::string key(keyAndValue.substr(0, separator));
    const std::string text(keyAndValue.substr(separator + 1));
    finder_sync::Settings setting = {{key, text}};
    const auto number = numberOf<std::int64_t>(text);
    if (number && !finder_sync::problemOf(setting).empty())
        setting[key] = *number;
    if (const std::string problem = finder_sync::problemOf(setting); !problem.empty())
        exitWithUsageError("--set: " + console::printable(problem));
    settings[key] = setting[key];
}

companion::Color colorOfName(std::string_view name) {
    if (name == "auto")
        return companion::Color::Automatic;
    if (name == "always")
        return companion::Color::Always;
    if (name == "never")
        return companion::Color::Never;
    exitWithUsageError("--color needs auto, always or never");
}

/// Takes one option of the command line, by its letter.
void take(int letter, Options& options) {
    switch (letter) {
    case 'p':
        if (const auto port = numberOf<std::uint16_t>(optarg))
            options.port = *port;
        else
            exitWithUsageError("--port needs a number from 0 to 65535");
        break;
    case 'P':
        options.isPadded = true;
        break;
    case 'N':
        options.isNotPadded = true;
        break;
    case 'w':
        options.writesSettings = true;
        break;
    case 's':
        addSetting(optarg, options.settings);
        break;
    case 'C':
        options.color = colorOfName(optarg);
        break;
    case 'c':
        options.commands.emplace_back(optarg);
        break;
    case 'f':
        options.follow = optarg;
        break;
    case 'h':
        printHelp();
        std::exit(EXIT_SUCCESS);
    case 'v':
        (void)process::writeFully(STDOUT_FILENO, std::string(findersync::companionProgram) + " " +
                                                     findersync::version + "\n");
        std::exit(EXIT_SUCCESS);
    default: // getopt_long has named the option
        exitWithUsageError("wrong usage");
    }
}

/// Reads the command line; ends the process when that is all there is to do.
Options parse(int argc, char** argv) {
    constexpr option known[] = {{"port", required_argument, nullptr, 'p'},
                                {"pad", no_argument, nullptr, 'P'},
                                {"no-pad", no_argument, nullptr, 'N'},
                                {"write-settings", no_argument, nullptr, 'w'},
                                {"set", required_argument, nullptr, 's'},
                                {"color", required_argument, nullptr, 'C'},
                                {"command", required_argument, nullptr, 'c'},
                                {"follow", required_argument, nullptr, 'f'},
                                {"help", no_argument, nullptr, 'h'},
                                {"version", no_argument, nullptr, 'v'},
                                {}};
    Options options;
    std::string name = findersync::companionProgram; // not the path, in getopt_long's messages
    argv[0] = name.data();
    for (int letter = 0; (letter = ::getopt_long(argc, argv, "c:h", known, nullptr)) != -1;)
        take(letter, options);
    if (optind < argc)
        exitWithUsageError(std::string("unknown argument '") + argv[optind] + "'");
    if (options.isPadded && options.isNotPadded)
        exitWithUsageError("--pad and --no-pad exclude each other");
    if (!options.settings.empty() && !options.writesSettings)
        exitWithUsageError("--set needs --write-settings");
    return options;
}

/// Serves until the input has ended, or a signal ends it. Returns the exit code; on failure
/// `failure` says what is wrong.
int serve(sd_event* event, const Options& options, companion::Screen& screen,
          std::string& failure) {
    if (const int result = process::endOnSignals(event); result < 0) {
        failure = std::string("signals cannot be watched: ") + std::strerror(-result);
        return EXIT_FAILURE;
    }
    const bool isTerminal = ::isatty(STDIN_FILENO) == 1;
    companion::Companion program(
        event, screen,
        {.isPadded = options.isPadded || (!isTerminal && !options.isNotPadded),
         .countsBadLines = !isTerminal});
    if (!program.listen(options.port, failure))
        return EXIT_FAILURE;
    if (options.writesSettings) {
        finder_sync::Settings settings = options.settings;
        settings.insert({"ServerPort", program.port()});
        if (!finder_sync::writeSettings(findersync::applicationGroup, settings, failure))
            return EXIT_FAILURE;
        screen.status("settings written to " +
                      finder_sync::settingsFile(findersync::applicationGroup));
    }
    companion::Follower follower(
        [&screen](std::string_view line) { screen.other(console::printable(line)); });
    if (!options.follow.empty() && !follower.follow(event, options.follow, failure))
        return EXIT_FAILURE;
    if (!program.start(failure))
        return EXIT_FAILURE;
    for (const std::string& command : options.commands)
        program.enter(command);
    return sd_event_loop(event);
}

} // namespace

int main(int argc, char** argv) {
    process::secureStandardDescriptors();
    const Options options = parse(argc, argv);
    companion::Screen screen(options.color);
    std::string failure;
    int exitCode = EXIT_FAILURE;
    process::EventLoop event;
    if (sd_event_new(process::Out(event)) < 0)
        failure = "there is no memory for an event loop";
    else
        exitCode = serve(event.get(), options, screen, failure);
    if (!failure.empty())
        screen.error(std::string(findersync::companionProgram) + ": " + failure);
    return exitCode < 0 ? EXIT_FAILURE : exitCode;
}

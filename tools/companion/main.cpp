// companion: a companion application for the development of the extension. It sends what it is
// told to, and shows what comes back.

#include "Names.h"
#include "process/StandardStreams.h"
#include "process/Termination.h"
#include "tools/companion/Companion.h"
#include "tools/companion/Follower.h"
#include "tools/companion/Screen.h"
#include "tools/companion/SettingsFile.h"
#include "tools/console/Text.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unistd.h>

namespace {

namespace json = boost::json;

constexpr int usageError = 2;

struct Options {
    std::uint16_t port = 61842;
    bool isPadded = false;
    bool isNotPadded = false;
    bool writesSettings = false;
    std::vector<std::string> settings; ///< KEY=VALUE
    std::string color = "auto";
    std::vector<std::string> commands;
    std::string follow; ///< path of a named pipe, empty for none
};

companion::Color colorOfName(std::string_view name) {
    if (name == "always")
        return companion::Color::Always;
    return name == "never" ? companion::Color::Never : companion::Color::Automatic;
}

void describe(CLI::App& app, Options& options) {
    app.set_version_flag("--version", "companion " FINDER_SYNC_VERSION);
    app.add_option("--port", options.port, "Port to listen on; 0 takes a free one (default 61842)")
        ->type_name("N")
        ->check(CLI::Range(0, 65535));
    auto* const pad =
        app.add_flag("--pad", options.isPadded,
                     "Pad each line to the 1,024 bytes that the extension reads at once (default, "
                     "except on a terminal)");
    app.add_flag("--no-pad", options.isNotPadded, "Do not pad lines")->excludes(pad);
    auto* const write = app.add_flag("--write-settings", options.writesSettings,
                                     "Write the port into the settings of the extension first");
    app.add_option("--set", options.settings, "One more setting to write; may be given repeatedly")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false)
        ->needs(write);
    app.add_option("--color", options.color, "Color the output: auto, always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app.add_option("-c,--command", options.commands,
                   "A command to start with; may be given repeatedly")
        ->type_name("LINE")
        ->allow_extra_args(false);
    app.add_option("--follow", options.follow,
                   "Show the lines that are written to this named pipe too, such as the trace of "
                   "the extension")
        ->type_name("PIPE");
    const std::string group(findersync::applicationGroup);
    app.footer("Settings:  $XDG_CONFIG_HOME/" + group + "/settings.json\n\nCommands:\n" +
               companion::helpOnCommands());
}

json::object parseSettings(const std::vector<std::string>& keysAndValues) {
    json::object settings;
    std::string failure;
    for (const std::string& keyAndValue : keysAndValues) {
        if (!companion::addSetting(settings, keyAndValue, failure))
            throw CLI::ValidationError("--set", failure);
    }
    return settings;
}

/// Writes the settings that the extension is to start with. Gives false on failure.
bool writeSettings(json::object settings, std::uint16_t port, companion::Screen& screen,
                   std::string& failure) {
    if (!settings.contains("ServerPort"))
        settings["ServerPort"] = port;
    const auto path = companion::mergeIntoSettingsFile(settings, failure);
    if (path)
        screen.status("settings written to " + *path);
    return path.has_value();
}

/// Serves until the input has ended, or a signal ends it. Gives the exit code; on failure
/// `failure` says what is wrong.
int serve(sd_event* event, const Options& options, const json::object& settings,
          companion::Screen& screen, std::string& failure) {
    if (const int result = process::endOnSignals(event); result < 0) {
        failure = std::string("signals cannot be watched: ") + std::strerror(-result);
        return EXIT_FAILURE;
    }
    const bool isTerminal = ::isatty(STDIN_FILENO) == 1;
    companion::Companion program(
        event, screen,
        {.isPadded = options.isPadded || (!isTerminal && !options.isNotPadded),
         .countsBadLines = !isTerminal});
    if (!program.bind(options.port, failure))
        return EXIT_FAILURE;
    if (options.writesSettings && !writeSettings(settings, program.port(), screen, failure))
        return EXIT_FAILURE;
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
    CLI::App app("A companion application for development: listens on 127.0.0.1 for the extension, "
                 "sends it what the commands on standard input say, and prints the click reports "
                 "that come back, one JSON object a line.",
                 "companion");
    Options options;
    json::object settings;
    describe(app, options);
    try {
        app.parse(argc, argv);
        settings = parseSettings(options.settings);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : usageError;
    }

    companion::Screen screen(colorOfName(options.color));
    std::string failure;
    int exitCode = EXIT_FAILURE;
    sd_event* event = nullptr;
    if (sd_event_new(&event) < 0)
        failure = "there is no memory for an event loop";
    else
        exitCode = serve(event, options, settings, screen, failure);
    sd_event_unref(event);
    if (!failure.empty())
        screen.error("companion: " + failure);
    return exitCode < 0 ? EXIT_FAILURE : exitCode;
}

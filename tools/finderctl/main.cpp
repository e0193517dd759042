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
#include <functional>
#include <string>
#include <utility>

namespace {

using finderctl::ExitCode;

constexpr int codeOf(ExitCode exitCode) {
    return static_cast<int>(exitCode);
}

/// What the command line says.
struct Words {
    bool isJSON = false;
    std::string selector;
    std::string kind = finderctl::menuKinds.front();
    finderctl::Items items;
    std::function<int()> run; ///< Does the work of the chosen subcommand.

    [[nodiscard]] finderctl::Form form() const {
        return isJSON ? finderctl::Form::JSON : finderctl::Form::Text;
    }
};

CLI::App* addSubcommand(CLI::App& app, Words& words, const char* name, const char* description,
                        std::function<int()> run) {
    CLI::App* const command = app.add_subcommand(name, description);
    command->callback([&words, run = std::move(run)] { words.run = run; });
    return command;
}

CLI::Option* addItems(CLI::App* command, Words& words, const char* description) {
    return command->add_option("ITEM", words.items, description)->type_name("PATH|URL");
}

void describeRequests(CLI::App& app, Words& words) {
    addSubcommand(app, words, "state", "Print all properties of the extension",
                  [&words] { return finderctl::state(words.form()); });
    CLI::App* const badge =
        addSubcommand(app, words, "badge", "Print which badge items carry",
                      [&words] { return finderctl::badge(words.items, words.form()); });
    addItems(badge, words, "Path or URL of an item")->required();
    CLI::App* const menu = addSubcommand(
        app, words, "menu", "Print what the extension adds to the menu on a selection",
        [&words] { return finderctl::menu(words.kind, words.items, words.form()); });
    menu->add_option("--kind", words.kind, "Where the menu opens (default items)")
        ->type_name("items|container|sidebar|toolbar")
        ->check(CLI::IsMember(finderctl::menuKinds));
    addItems(menu, words, "Path or URL of a selected item");
    CLI::App* const click =
        addSubcommand(app, words, "click", "Pick the entry of an action, with a selection",
                      [&words] { return finderctl::click(words.selector, words.items); });
    click->add_option("SELECTOR", words.selector, "Selector of the action, such as backupClicked:")
        ->required();
    addItems(click, words, "Path or URL of a selected item");
}

void describeNotices(CLI::App& app, Words& words) {
    CLI::App* const observe =
        addSubcommand(app, words, "observe", "Tell that the user starts viewing directories",
                      [&words] { return finderctl::observe(words.items); });
    addItems(observe, words, "Path or URL of a directory")->required();
    CLI::App* const unobserve =
        addSubcommand(app, words, "unobserve", "Tell that the user stops viewing directories",
                      [&words] { return finderctl::unobserve(words.items); });
    addItems(unobserve, words, "Path or URL of a directory")->required();
    addSubcommand(app, words, "monitor",
                  "Print changes of the extension's properties until interrupted",
                  [&words] { return finderctl::monitor(words.form()); });
    addSubcommand(app, words, "restart",
                  "End the extension and have the bus start it anew, so that it connects anew",
                  finderctl::restart);
}

void describe(CLI::App& app, Words& words) {
    app.set_version_flag("--version", "finderctl " FINDER_SYNC_VERSION);
    app.add_flag("--json", words.isJSON, "Print JSON");
    app.require_subcommand(1);
    app.fallthrough(); // global options may follow the subcommand
    describeRequests(app, words);
    describeNotices(app, words);
    app.footer("Exit codes: 0 done, 1 refused or failed, 2 wrong usage, 3 the extension is not "
               "running.");
}

int run(const Words& words) {
    try {
        return words.run();
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
    Words words;
    describe(app, words);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : codeOf(ExitCode::Usage);
    }
    return run(words);
}

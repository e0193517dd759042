#pragma once

// Every subcommand is a source file of its own. It describes its part of the command line and, when
// the user has chosen it, sets what is to be done.

#include <CLI/CLI.hpp>
#include <functional>

namespace finderctl {

/// What the command line asks for.
struct Invocation {
    /// Print JSON instead of text for people.
    bool isJSON = false;

    /// Does the work of the chosen subcommand and gives the exit code. Throws `Failure`.
    std::function<int()> run;
};

void addState(CLI::App& app, Invocation& invocation);
void addBadge(CLI::App& app, Invocation& invocation);
void addMenu(CLI::App& app, Invocation& invocation);
void addClick(CLI::App& app, Invocation& invocation);
void addObserve(CLI::App& app, Invocation& invocation);
void addUnobserve(CLI::App& app, Invocation& invocation);
void addMonitor(CLI::App& app, Invocation& invocation);
void addRestart(CLI::App& app, Invocation& invocation);

} // namespace finderctl

#pragma once

// The subcommands, each in a source file of its own. They do their work, give the exit code and
// throw `Failure`. An item is the path or the URL that the user has typed.

#include <array>
#include <string>
#include <vector>

namespace finderctl {

/// How a subcommand prints what it has found.
enum class Form { Text, JSON };

using Items = std::vector<std::string>;

/// Prints all properties of the extension.
int state(Form form);

/// Prints which badges items carry.
int badge(const Items& items, Form form);

/// The kinds of places where a menu opens, by the names that users type. The place of a name is the
/// number of its kind.
inline constexpr std::array menuKinds = {"items", "container", "sidebar", "toolbar"};

/// Prints what the extension adds to the menu of that kind on a selection.
int menu(const std::string& kind, const Items& items, Form form);

/// Picks the entry of an action, with a selection.
int click(const std::string& selector, const Items& items);

/// Tell that the user starts or stops viewing directories.
int observe(const Items& items);
int unobserve(const Items& items);

/// Prints changes of the extension's properties until it is interrupted.
int monitor(Form form);

/// Ends the extension and has the bus start it anew.
int restart();

} // namespace finderctl

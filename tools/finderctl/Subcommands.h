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

/// The command line, apart from the name of the subcommand.
struct Arguments {
    Form form = Form::Text;
    std::string busName; ///< Of the product's extension.
    std::string kind;    ///< Empty when --kind was not given.
    Items items;         ///< With the selector as the first one for "click".
};

/// Prints all properties of the extension.
int state(const Arguments& arguments);

/// Prints which badges items carry.
int badge(const Arguments& arguments);

/// The kinds of places where a menu opens, by the names that users type. The place of a name is the
/// number of its kind.
inline constexpr std::array menuKinds = {"items", "container", "sidebar", "toolbar"};

/// Prints what the extension adds to the menu of that kind on a selection.
int menu(const Arguments& arguments);

/// Picks the entry of an action, with a selection.
int click(const Arguments& arguments);

/// Tell that the user starts or stops viewing directories.
int observe(const Arguments& arguments);
int unobserve(const Arguments& arguments);

/// Prints changes of the extension's properties until it is interrupted.
int monitor(const Arguments& arguments);

/// Ends the extension, has the bus start it anew, and tells when it does not reach the companion.
int restart(const Arguments& arguments);

/// Prints what keeps badges and menus from being shown, and its remedy.
int doctor(const Arguments& arguments);

} // namespace finderctl

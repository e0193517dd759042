#pragma once

#include <optional>
#include <string>

namespace companion {

/// The group's directory below $XDG_CONFIG_HOME (default ~/.config): where the settings are that
/// are shared with the extension. None when the environment names no such directory.
[[nodiscard]] std::optional<std::string> settingsDirectory();

/// The group's directory below $XDG_STATE_HOME (default ~/.local/state).
[[nodiscard]] std::optional<std::string> stateDirectory();

} // namespace companion

#include "tools/companion/UserDirectories.h"

#include "Names.h"

#include <cstdlib>
#include <string_view>

namespace companion {

namespace {

/// A relative path in one of the variables counts as none at all.
std::optional<std::string> absolutePathIn(const char* variable) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || value[0] != '/')
        return std::nullopt;
    return value;
}

std::optional<std::string> groupDirectory(const char* variable, std::string_view belowHome) {
    std::optional<std::string> base = absolutePathIn(variable);
    if (!base) {
        base = absolutePathIn("HOME");
        if (base)
            base->append(belowHome);
    }
    if (base)
        base->append("/").append(findersync::applicationGroup);
    return base;
}

} // namespace

std::optional<std::string> settingsDirectory() {
    return groupDirectory("XDG_CONFIG_HOME", "/.config");
}

std::optional<std::string> stateDirectory() {
    return groupDirectory("XDG_STATE_HOME", "/.local/state");
}

} // namespace companion

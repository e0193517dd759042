#include "finder_sync_companion/Settings.h"

namespace finder_sync {

std::string settingsFile(const std::string&) {
    return {};
}

bool writeSettings(const std::string&, const Settings&, std::string& failure) {
    failure = "on macOS the settings are the defaults of the application group, which "
              "NSUserDefaults writes";
    return false;
}

} // namespace finder_sync

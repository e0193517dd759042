#include "platform/recording/Recording.h"

namespace platform {

void NSLog(std::string_view format, std::string_view argument) {
    recording::record("NSLog: " + std::string(format) + " <- " + std::string(argument));
}

} // namespace platform

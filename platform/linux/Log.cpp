#include "platform/linux/Log.h"

#include "platform/Foundation.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>
#include <unistd.h>

namespace platform {

namespace {

/// "2026-01-31 12:00:00.123 finder-sync-extension[4711] ", in local time.
///
/// Only the milliseconds are formatted again within one second: a request logs many lines.
const std::string& timeNameAndProcess() {
    static std::time_t secondShown = -1;
    static std::string prefix;
    static std::size_t millisecondsPlace = 0;

    std::timespec now{};
    (void)::clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != secondShown) {
        secondShown = now.tv_sec;
        std::tm local{};
        (void)::localtime_r(&now.tv_sec, &local);
        char date[sizeof "2026-01-31 12:00:00."];
        prefix.assign(date, std::strftime(date, sizeof date, "%F %T.", &local));
        millisecondsPlace = prefix.size();
        prefix.append("000 ").append(program_invocation_short_name);
        prefix += "[" + std::to_string(::getpid()) + "] ";
    }
    auto milliseconds = now.tv_nsec / 1'000'000;
    for (std::size_t place = millisecondsPlace + 3; place-- > millisecondsPlace;) {
        prefix[place] = static_cast<char>('0' + milliseconds % 10);
        milliseconds /= 10;
    }
    return prefix;
}

linux_backend::Level& mostVerboseLevel() {
    static linux_backend::Level level = linux_backend::Level::Debug;
    return level;
}

} // namespace

namespace linux_backend {

void setLogLevel(Level level) {
    mostVerboseLevel() = level;
}

Level logLevel() {
    return mostVerboseLevel();
}

void log(Level level, std::string_view text) {
    bufferDiagnostic(level, standardErrorIsJournal() ? std::string_view() : timeNameAndProcess(),
                     text);
}

} // namespace linux_backend

void NSLog(std::string_view format, std::string_view argument) {
    using linux_backend::Level;
    if (mostVerboseLevel() < Level::Debug)
        return;
    static std::string message; // reuses its allocation
    message = format;
    if (const auto place = message.find("%@"); place != std::string::npos)
        message.replace(place, 2, argument);
    linux_backend::log(Level::Debug, message);
}

} // namespace platform

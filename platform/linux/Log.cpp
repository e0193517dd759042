#include "platform/Foundation.h"
#include "platform/linux/StandardStreams.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <unistd.h>

namespace platform {

namespace {

/// "2026-01-31 12:00:00.123 finder-sync-extension[4711] ", in local time.
std::string timeNameAndProcess() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm local{};
    (void)::localtime_r(&seconds, &local);
    char date[sizeof "2026-01-31 12:00:00"];
    if (std::strftime(date, sizeof date, "%F %T", &local) == 0)
        date[0] = '\0';
    char prefix[128];
    (void)std::snprintf(prefix, sizeof prefix, "%s.%03d %.64s[%d] ", date,
                        static_cast<int>(milliseconds), program_invocation_short_name, ::getpid());
    return prefix;
}

} // namespace

void NSLog(std::string_view format, std::string_view argument) {
    std::string message(format);
    if (const auto place = message.find("%@"); place != std::string::npos)
        message.replace(place, 2, argument);
    // Whoever reads both streams together sees the lines in the order in which they came about.
    linux_backend::flushStandardOutput();
    linux_backend::writeDiagnostic(
        linux_backend::Level::Info,
        linux_backend::standardErrorIsJournal() ? std::string() : timeNameAndProcess(), message);
}

} // namespace platform

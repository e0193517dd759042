#include "hosts/linux/LogControl.h"

#include "platform/linux/Log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

namespace hosts::linux_host {

namespace {

using platform::linux_backend::Level;

constexpr std::array levelNames = {"emerg",   "alert",  "crit", "err",
                                   "warning", "notice", "info", "debug"};

const char* target() {
    return platform::linux_backend::standardErrorIsJournal() ? "journal" : "console";
}

int readString(sd_bus_message* message, std::string_view& text) {
    const char* received = nullptr;
    const int result = sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &received);
    text = result < 0 ? "" : received;
    return result;
}

int getLevel(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
             sd_bus_error*) noexcept {
    const auto level = static_cast<std::size_t>(platform::linux_backend::logLevel());
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, levelNames.at(level));
}

int setLevel(sd_bus*, const char*, const char*, const char*, sd_bus_message* value, void*,
             sd_bus_error* error) noexcept {
    std::string_view name;
    if (const int result = readString(value, name); result < 0)
        return result;
    const std::optional<Level> level = logLevelNamed(name);
    if (!level)
        return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "there is no such log level");
    platform::linux_backend::setLogLevel(*level);
    return 0;
}

int getTarget(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
              sd_bus_error*) noexcept {
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, target());
}

int setTarget(sd_bus*, const char*, const char*, const char*, sd_bus_message* value, void*,
              sd_bus_error* error) noexcept {
    std::string_view name;
    if (const int result = readString(value, name); result < 0)
        return result;
    if (name != target())
        return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS,
                                "the log goes to standard error and nowhere else");
    return 0;
}

int getIdentifier(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
                  sd_bus_error*) noexcept {
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, program_invocation_short_name);
}

const sd_bus_vtable logControlMembers[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_WRITABLE_PROPERTY("LogLevel", "s", getLevel, setLevel, 0, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_WRITABLE_PROPERTY("LogTarget", "s", getTarget, setTarget, 0, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("SyslogIdentifier", "s", getIdentifier, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

} // namespace

int publishLogControl(sd_bus* bus) {
    return sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/LogControl1",
                                    "org.freedesktop.LogControl1", logControlMembers, nullptr);
}

std::optional<Level> logLevelNamed(std::string_view name) {
    const auto* const found = std::ranges::find(levelNames, name);
    if (found == levelNames.end())
        return std::nullopt;
    return static_cast<Level>(std::distance(levelNames.begin(), found));
}

} // namespace hosts::linux_host

#include "hosts/linux/SessionBus.h"

#include "platform/linux/BufferedOutput.h"

#include <cerrno>
#include <cstring>
#include <string_view>

namespace hosts::linux_host {

namespace {

void complain(const std::string& text) {
    platform::linux_backend::writeDiagnostic(platform::linux_backend::Level::Error,
                                             std::string(program_invocation_short_name) + ": ",
                                             text);
}

/// The process that owns a bus name, as ", process 4711"; empty when it cannot be found out.
std::string processOfOwner(sd_bus* bus, const std::string& name) {
    process::Credentials credentials;
    const int result =
        sd_bus_get_name_creds(bus, name.c_str(), SD_BUS_CREDS_PID, process::Out(credentials));
    pid_t process = 0;
    std::string text;
    if (result >= 0 && sd_bus_creds_get_pid(credentials.get(), &process) >= 0)
        text = ", process " + std::to_string(process);
    return text;
}

} // namespace

bool SessionBus::open(const std::string& name, platform::linux_backend::RunLoop& runLoop) {
    int result = sd_bus_open_user(process::Out(bus_));
    if (result < 0) {
        complain(std::string("there is no session bus to connect to (") + std::strerror(-result) +
                 "); start it inside a desktop session, or with dbus-run-session");
        return false;
    }
    if (!takeName(name))
        return false;
    result = sd_bus_attach_event(bus_.get(), runLoop.event(), SD_EVENT_PRIORITY_NORMAL);
    if (result < 0)
        complain(std::string("the session bus cannot be served: ") + std::strerror(-result));
    return result >= 0;
}

bool SessionBus::isOpen() const {
    const bool isOpen = sd_bus_is_open(bus_.get()) > 0;
    if (!isOpen)
        complain("the session bus has gone, so the session is over");
    return isOpen;
}

bool SessionBus::takeName(const std::string& name) {
    const int result = sd_bus_request_name(bus_.get(), name.c_str(), 0);
    if (result == -EEXIST)
        complain("the bus name " + name + " is taken" + processOfOwner(bus_.get(), name) +
                 ": an extension is running already; end that process first, or go on using it");
    else if (result < 0)
        complain("the bus name " + name + " cannot be had: " + std::strerror(-result));
    return result >= 0;
}

} // namespace hosts::linux_host

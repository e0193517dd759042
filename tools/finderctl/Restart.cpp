// finderctl restart: ends the extension's process and has the bus start it anew.

#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Subcommands.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace finderctl {

namespace {

using Clock = std::chrono::steady_clock;

/// An extension that has not ended by then is killed.
constexpr auto terminationTimeout = std::chrono::seconds(3);

/// Calls a method of the bus itself, with the extension's name as the argument.
process::Message callBus(const ExtensionProxy& extension, const char* member,
                         bool withFlags = false) {
    process::Message call;
    check(sd_bus_message_new_method_call(extension.bus(), process::Out(call),
                                         "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                         "org.freedesktop.DBus", member),
          "the call cannot be made");
    check(sd_bus_message_append(call.get(), "s", findersync::busName), "the call cannot be made");
    if (withFlags)
        check(sd_bus_message_append(call.get(), "u", 0U), "the call cannot be made");
    return extension.call(call);
}

bool isRunning(const ExtensionProxy& extension) {
    int hasOwner = 0;
    check(sd_bus_message_read(callBus(extension, "NameHasOwner").get(), "b", &hasOwner),
          "the bus has answered something else");
    return hasOwner != 0;
}

pid_t processOf(const ExtensionProxy& extension) {
    unsigned process = 0;
    check(
        sd_bus_message_read(callBus(extension, "GetConnectionUnixProcessID").get(), "u", &process),
        "the bus has answered something else");
    return static_cast<pid_t>(process);
}

bool endsWithin(const ExtensionProxy& extension, Clock::duration time) {
    const auto deadline = Clock::now() + time;
    while (isRunning(extension)) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

void end(const ExtensionProxy& extension) {
    const pid_t process = processOf(extension);
    for (const int signal : {SIGTERM, SIGKILL}) {
        if (::kill(process, signal) != 0 && errno != ESRCH)
            throw Failure("process " + std::to_string(process) +
                          " cannot be ended: " + std::strerror(errno));
        if (endsWithin(extension, terminationTimeout))
            return;
    }
    throw Failure("process " + std::to_string(process) + " does not end");
}

void start(const ExtensionProxy& extension) {
    try {
        (void)callBus(extension, "StartServiceByName", true);
    } catch (const Failure& failure) {
        throw Failure("the bus cannot start the extension again (" + std::string(failure.what()) +
                      "): is it installed where the bus looks for services?");
    }
}

} // namespace

int restart() {
    const ExtensionProxy extension;
    if (isRunning(extension))
        end(extension);
    start(extension);
    return EXIT_SUCCESS;
}

} // namespace finderctl

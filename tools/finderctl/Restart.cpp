// finderctl restart: ends the extension's process and has the bus start it anew.

#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>
#include <unistd.h>

namespace finderctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto timeout = std::chrono::seconds(3);
constexpr const char* callFailed = "the call cannot be made";

/// Waits until the condition holds, for no longer than the timeout. Returns whether it does.
bool waitUntil(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + timeout;
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

/// The process of a connection, as the bus numbers it.
pid_t processOf(const ExtensionProxy& extension, const char* name) {
    const process::Message question = extension.newCallOfBus("GetConnectionUnixProcessID");
    check(sd_bus_message_append_basic(question.get(), 's', name), callFailed);
    unsigned process = 0;
    check(sd_bus_message_read_basic(extension.call(question).get(), 'u', &process),
          "the bus has answered something else");
    return static_cast<pid_t>(process);
}

/// Kills an extension that hangs. In a sandbox with a proxy for the bus, the bus's numbers are not
/// those of the processes that can be seen.
void kill(const ExtensionProxy& extension) {
    const char* own = nullptr;
    check(sd_bus_get_unique_name(extension.bus(), &own), callFailed);
    if (processOf(extension, own) != ::getpid())
        throw Failure("the extension does not end, and nobody can kill it from this sandbox");
    const pid_t process = processOf(extension, extension.name().c_str());
    if (::kill(process, SIGKILL) != 0 && errno != ESRCH)
        throw Failure("process " + std::to_string(process) +
                      " cannot be killed: " + std::strerror(errno));
}

void end(const ExtensionProxy& extension) {
    const auto hasEnded = [&extension] { return !extension.isRunning(); };
    // No reply is needed: what counts is whether the process ends.
    const process::Message quit = extension.newCall("Quit", findersync::processInterfaceName);
    check(sd_bus_message_set_expect_reply(quit.get(), 0), callFailed);
    check(sd_bus_send(extension.bus(), quit.get(), nullptr), callFailed);
    if (waitUntil(hasEnded))
        return;
    kill(extension);
    if (!waitUntil(hasEnded))
        throw Failure("the extension does not end");
}

/// Returns the exit code: a failure if the extension does not reach the companion.
int reportLink(const ExtensionProxy& extension) {
    std::string state;
    (void)waitUntil([&] { return (state = extension.linkState()) != "connecting"; });
    if (state == "open")
        return EXIT_SUCCESS;
    complain("the extension has started anew, but its link to port " +
             std::to_string(extension.serverPort()) + " is not open (" + state +
             "): start the companion application first, then restart again");
    return EXIT_FAILURE;
}

} // namespace

int restart(const Arguments& arguments) {
    const ExtensionProxy extension(arguments.busName);
    if (extension.isRunning())
        end(extension);
    try {
        extension.start();
    } catch (const Failure& failure) {
        throw Failure(std::string(failure.what()) + "; \"" + findersync::controlProgram +
                      " doctor\" looks for the cause");
    }
    return reportLink(extension);
}

} // namespace finderctl

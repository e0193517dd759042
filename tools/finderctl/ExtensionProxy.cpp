#include "tools/finderctl/ExtensionProxy.h"

#include "tools/console/Text.h"
#include "tools/finderctl/Failure.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <utility>

namespace finderctl {

namespace {

constexpr std::chrono::microseconds timeout = std::chrono::seconds(5);
constexpr const char* callFailed = "the call cannot be made";

class Error {
public:
    Error() = default;
    ~Error() { sd_bus_error_free(&error_); }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;

    [[nodiscard]] sd_bus_error* get() { return &error_; }
    [[nodiscard]] bool has(const char* name) const {
        return sd_bus_error_has_name(&error_, name) != 0;
    }
    [[nodiscard]] std::string message() const {
        if (error_.message != nullptr)
            return console::printable(error_.message);
        return error_.name != nullptr ? error_.name : "unknown error";
    }

private:
    sd_bus_error error_{};
};

[[noreturn]] void throwFailureOfCall(const std::string& name, const Error& error, int result) {
    if (error.has(SD_BUS_ERROR_SERVICE_UNKNOWN) || error.has(SD_BUS_ERROR_NAME_HAS_NO_OWNER))
        throw Failure("the extension is not running (nobody owns " + name +
                          " on the session bus): \"" + findersync::controlProgram +
                          " restart\" starts it",
                      ExitCode::NotRunning);
    if (error.has(SD_BUS_ERROR_NO_REPLY))
        throw Failure("the extension has ended before it answered; its own last words on standard "
                      "error say why");
    if (result == -ETIMEDOUT)
        throw Failure("the extension does not answer, it may be stopped or stuck: gave up after 5 "
                      "seconds");
    throw Refused("the extension refused it: " + error.message());
}

/// Waits until the connection to the bus is complete; opening the bus only begins it. The library's
/// own timeout for a bus that hangs is a minute and a half.
int waitUntilReady(sd_bus* bus) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (sd_bus_is_ready(bus) == 0) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return -ETIMEDOUT;
        int result = sd_bus_process(bus, nullptr);
        if (result == 0)
            result = sd_bus_wait(bus, static_cast<std::uint64_t>(left.count()));
        if (result < 0)
            return result;
    }
    return 0;
}

} // namespace

void check(int result, const char* whatFailed) {
    if (result < 0)
        throw Failure(std::string(whatFailed) + ": " + std::strerror(-result));
}

ExtensionProxy::ExtensionProxy(std::string busName) : name_(std::move(busName)) {
    int result = sd_bus_open_user(process::Out(bus_));
    if (result >= 0)
        result = waitUntilReady(bus_.get());
    if (result >= 0)
        return;
    sd_bus_close_unref(bus_.release()); // flushing would wait for a bus that hangs
    if (result == -ETIMEDOUT)
        throw Failure("the session bus does not answer, it may be stopped or stuck: gave up after "
                      "5 seconds");
    throw Failure(std::string("there is no session bus to connect to (") + std::strerror(-result) +
                  "); call this inside a desktop session, or under dbus-run-session");
}

process::Message ExtensionProxy::newCall(const char* member, const char* interface) const {
    process::Message call;
    check(sd_bus_message_new_method_call(bus_.get(), process::Out(call), name_.c_str(),
                                         findersync::objectPath, interface, member),
          callFailed);
    check(sd_bus_message_set_auto_start(call.get(), 0), callFailed);
    return call;
}

process::Message ExtensionProxy::newCallOfBus(const char* member) const {
    process::Message call;
    check(sd_bus_message_new_method_call(bus_.get(), process::Out(call), busDriver,
                                         "/org/freedesktop/DBus", busDriver, member),
          callFailed);
    return call;
}

process::Message ExtensionProxy::call(const process::Message& message) const {
    Error error;
    process::Message reply;
    const int result =
        sd_bus_call(bus_.get(), message.get(), timeout.count(), error.get(), process::Out(reply));
    if (result < 0)
        throwFailureOfCall(name_, error, result);
    return reply;
}

bool ExtensionProxy::isRunning() const {
    const process::Message question = newCallOfBus("NameHasOwner");
    check(sd_bus_message_append_basic(question.get(), 's', name_.c_str()), callFailed);
    int hasOwner = 0;
    check(sd_bus_message_read_basic(call(question).get(), 'b', &hasOwner), replyFailed);
    return hasOwner != 0;
}

void ExtensionProxy::start() const {
    const process::Message request = newCallOfBus("StartServiceByName");
    check(sd_bus_message_append(request.get(), "su", name_.c_str(), 0U), callFailed);
    Error error;
    process::Message reply;
    const int result =
        sd_bus_call(bus_.get(), request.get(), timeout.count(), error.get(), process::Out(reply));
    if (result < 0)
        throw Failure(
            "the bus cannot start the extension: " +
            (result == -ETIMEDOUT ? "it has not come within 5 seconds" : error.message()));
}

process::Message ExtensionProxy::newGet(const char* interface, const char* property) const {
    process::Message question = newCall("Get", propertiesInterface);
    check(sd_bus_message_append(question.get(), "ss", interface, property), callFailed);
    return question;
}

unsigned ExtensionProxy::serverPort() const {
    unsigned port = 0;
    const process::Message reply = call(newGet(findersync::interfaceName, "serverPort"));
    check(sd_bus_message_read(reply.get(), "v", "u", &port), replyFailed);
    return port;
}

std::string ExtensionProxy::linkState() const {
    const process::Message reply = call(newGet(findersync::processInterfaceName, "linkState"));
    const char* state = nullptr;
    check(sd_bus_message_read(reply.get(), "v", "s", &state), replyFailed);
    return console::printable(state);
}

void appendList(const process::Message& call, const std::vector<std::string>& list) {
    check(sd_bus_message_open_container(call.get(), 'a', "s"), callFailed);
    for (const std::string& element : list)
        check(sd_bus_message_append_basic(call.get(), 's', element.c_str()), callFailed);
    check(sd_bus_message_close_container(call.get()), callFailed);
}

std::vector<std::string> readList(sd_bus_message* message) {
    std::vector<std::string> list;
    check(sd_bus_message_enter_container(message, 'a', "s"), replyFailed);
    const char* element = nullptr;
    for (int result = 1; result > 0;) {
        result = sd_bus_message_read_basic(message, 's', static_cast<void*>(&element));
        check(result, replyFailed);
        if (result > 0)
            list.emplace_back(element);
    }
    check(sd_bus_message_exit_container(message), replyFailed);
    return list;
}

} // namespace finderctl

#include "tools/finderctl/Extension.h"

#include "tools/console/Text.h"
#include "tools/finderctl/Failure.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace finderctl {

namespace {

constexpr std::chrono::microseconds patience = std::chrono::seconds(5);

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

[[noreturn]] void throwFailureOfCall(const Error& error, int result) {
    if (error.has(SD_BUS_ERROR_SERVICE_UNKNOWN) || error.has(SD_BUS_ERROR_NAME_HAS_NO_OWNER))
        throw Failure("the extension is not running (nobody owns " +
                          std::string(Extension::busName) +
                          " on the session bus): start finder-sync-extension, then try again",
                      ExitCode::NotRunning);
    if (error.has(SD_BUS_ERROR_NO_REPLY))
        throw Failure("the extension has ended before it answered; its own last words on standard "
                      "error say why");
    if (result == -ETIMEDOUT)
        throw Failure("the extension does not answer, it may be stopped or stuck: gave up after 5 "
                      "seconds");
    throw Refused("the extension refused it: " + error.message());
}

/// Waits until the bus has let us in, which opening it only begins. The library would wait for a
/// bus that hangs for a minute and a half.
int waitUntilReady(sd_bus* bus) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
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

Extension::Extension() {
    sd_bus* bus = nullptr;
    int result = sd_bus_open_user(&bus);
    if (result >= 0)
        result = waitUntilReady(bus);
    if (result < 0)
        sd_bus_close_unref(bus); // there is nothing to flush
    if (result == -ETIMEDOUT)
        throw Failure("the session bus does not answer, it may be stopped or stuck: gave up after "
                      "5 seconds");
    if (result < 0)
        throw Failure(std::string("there is no session bus to connect to (") +
                      std::strerror(-result) +
                      "); call this inside a desktop session, or under dbus-run-session");
    bus_.reset(bus);
}

Message Extension::newCall(const char* member) const {
    return newCall(interfaceName, member);
}

Message Extension::newCall(const char* interface, const char* member) const {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(bus_.get(), &message, busName, objectPath, interface,
                                         member),
          "the call cannot be made");
    Message call(message);
    check(sd_bus_message_set_auto_start(message, 0), "the call cannot be made");
    return call;
}

Message Extension::call(const Message& message) const {
    Error error;
    sd_bus_message* reply = nullptr;
    const int result =
        sd_bus_call(bus_.get(), message.get(), patience.count(), error.get(), &reply);
    if (result < 0)
        throwFailureOfCall(error, result);
    return Message(reply);
}

} // namespace finderctl

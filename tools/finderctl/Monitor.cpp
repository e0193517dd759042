// finderctl monitor: prints what changes, as it changes.

#include "process/SystemdHandles.h"
#include "process/Termination.h"
#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Properties.h"
#include "tools/finderctl/Subcommands.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <optional>
#include <sys/epoll.h>
#include <systemd/sd-event.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace finderctl {

namespace {

constexpr const char* watchFailed = "the session bus cannot be watched";

class Monitor {
public:
    explicit Monitor(const Arguments& arguments)
        : form_(arguments.form), extension_(arguments.busName) {}

    /// Prints until a signal or the reader ends it. Returns the exit code.
    [[nodiscard]] int run();

private:
    using Handler = void (Monitor::*)(sd_bus_message*);

    void watchOutput();
    void watchBus();
    void askForOwner();
    void ownerTold(sd_bus_message* reply);
    void ownerChanged(sd_bus_message* signal);
    void propertiesChanged(sd_bus_message* signal);
    void askForRootFolders();
    void rootFoldersTold(sd_bus_message* reply);
    void show(const std::vector<Property>& properties);
    void setRunning(bool isRunning);
    void show(const std::string& text);

    void fail(std::exception_ptr failure);

    template <Handler handler>
    static int handle(sd_bus_message* message, void* self, sd_bus_error*) noexcept;
    static int busGone(sd_bus_message*, void* self, sd_bus_error*) noexcept;

    Form form_;
    process::EventLoop event_;
    ExtensionProxy extension_;
    std::optional<bool> isRunning_; ///< None until the bus has replied.
    std::exception_ptr failure_;
};

template <Monitor::Handler handler>
int Monitor::handle(sd_bus_message* message, void* self, sd_bus_error*) noexcept {
    auto& monitor = *static_cast<Monitor*>(self);
    try {
        (monitor.*handler)(message);
    } catch (...) {
        monitor.fail(std::current_exception());
    }
    return 0;
}

int Monitor::busGone(sd_bus_message*, void* self, sd_bus_error*) noexcept {
    static_cast<Monitor*>(self)->fail(
        std::make_exception_ptr(Failure("the session bus has gone, so the session is over")));
    return 0;
}

/// Ends the event loop and keeps the exception, which may not be thrown through it.
void Monitor::fail(std::exception_ptr failure) {
    failure_ = std::move(failure);
    (void)sd_event_exit(event_.get(), EXIT_FAILURE);
}

int Monitor::run() {
    check(sd_event_new(process::Out(event_)), watchFailed);
    check(process::endOnSignals(event_.get()), "signals cannot be watched");
    watchOutput();
    // Subscribing comes before asking, so that no change falls between the two.
    watchBus();
    askForOwner();
    check(sd_bus_attach_event(extension_.bus(), event_.get(), SD_EVENT_PRIORITY_NORMAL),
          watchFailed);
    const int exitCode = sd_event_loop(event_.get());
    if (failure_)
        std::rethrow_exception(failure_);
    check(exitCode, watchFailed);
    return exitCode;
}

/// Makes the loop end when the reader of standard output goes, even if there is nothing to print.
void Monitor::watchOutput() {
    const auto end = [](sd_event_source* source, int, std::uint32_t, void*) {
        return sd_event_exit(sd_event_source_get_event(source), EXIT_SUCCESS);
    };
    // No events are requested: errors and hang-ups are reported anyway. A file has neither.
    const int result = sd_event_add_io(event_.get(), nullptr, STDOUT_FILENO, 0, end, nullptr);
    check(result == -EPERM ? 0 : result, "standard output cannot be watched");
}

void Monitor::watchBus() {
    sd_bus* const bus = extension_.bus();
    const std::string ownerRule = "type='signal',sender='org.freedesktop.DBus',"
                                  "path='/org/freedesktop/DBus',"
                                  "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
                                  "arg0='" +
                                  extension_.name() + "'";
    check(sd_bus_add_match(bus, nullptr, ownerRule.c_str(), handle<&Monitor::ownerChanged>, this),
          watchFailed);
    check(sd_bus_match_signal(bus, nullptr, extension_.name().c_str(), findersync::objectPath,
                              propertiesInterface, "PropertiesChanged",
                              handle<&Monitor::propertiesChanged>, this),
          watchFailed);
    check(sd_bus_match_signal_async(bus, nullptr, "org.freedesktop.DBus.Local", nullptr,
                                    "org.freedesktop.DBus.Local", "Disconnected", busGone, nullptr,
                                    this),
          watchFailed);
}

void Monitor::askForOwner() {
    check(sd_bus_call_method_async(extension_.bus(), nullptr, busDriver, "/org/freedesktop/DBus",
                                   busDriver, "NameHasOwner", handle<&Monitor::ownerTold>, this,
                                   "s", extension_.name().c_str()),
          watchFailed);
}

void Monitor::ownerTold(sd_bus_message* reply) {
    int isRunning = 0;
    check(sd_bus_message_read(reply, "b", &isRunning), watchFailed);
    setRunning(isRunning != 0);
}

void Monitor::ownerChanged(sd_bus_message* signal) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    check(sd_bus_message_read(signal, "sss", &name, &before, &after), watchFailed);
    // A signal that arrives before the first reply is older than that reply.
    if (!isRunning_)
        return;
    if (before[0] != '\0')
        setRunning(false);
    if (after[0] != '\0')
        setRunning(true);
}

void Monitor::setRunning(bool isRunning) {
    const bool isFirst = !isRunning_.has_value();
    isRunning_ = isRunning;
    if (form_ == Form::JSON)
        show(isRunning ? R"({"running":true})" : R"({"running":false})");
    else if (isFirst)
        show(isRunning ? "the extension is running" : "the extension is not running");
    else
        show(isRunning ? "the extension has appeared" : "the extension has disappeared");
}

void Monitor::propertiesChanged(sd_bus_message* signal) {
    check(sd_bus_message_skip(signal, "s"), watchFailed); // the interface
    show(readProperties(signal));
    if (!readList(signal).empty())
        askForRootFolders();
}

/// Changes of this property are signalled without its value, those of all others with it.
void Monitor::askForRootFolders() {
    const process::Message call = extension_.newGet(findersync::interfaceName, rootFolders);
    check(sd_bus_call_async(extension_.bus(), nullptr, call.get(),
                            handle<&Monitor::rootFoldersTold>, this, 0),
          watchFailed);
}

void Monitor::rootFoldersTold(sd_bus_message* reply) {
    if (sd_bus_message_is_method_error(reply, nullptr) == 0)
        show({readProperty(rootFolders, reply)});
    else if (sd_bus_message_is_method_error(reply, SD_BUS_ERROR_LIMITS_EXCEEDED) > 0)
        complain(std::string(rootFolders) + ": the list is too long for a message");
}

void Monitor::show(const std::vector<Property>& properties) {
    if (form_ == Form::JSON && !properties.empty())
        show(jsonOf(properties));
    else
        for (const Property& property : properties)
            show(property.name + ": " + property.text);
}

void Monitor::show(const std::string& text) {
    if (!print(text))
        (void)sd_event_exit(event_.get(), EXIT_SUCCESS);
}

} // namespace

int monitor(const Arguments& arguments) {
    return Monitor(arguments).run();
}

} // namespace finderctl

// Calls the service over a real sd-bus connection within this process. Every call must be answered,
// and none may be fatal.

#include "Names.h"
#include "fuzz/Difference.h"
#include "hosts/linux/ExtensionService.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "platform/linux/RunLoop.h"
#include "platform/text/Unicode.h"
#include "process/SystemdHandles.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <fuzzer/FuzzedDataProvider.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-id128.h>
#include <vector>

using findersync::fuzz::require;
using process::Message;
using process::Out;

namespace {

/// A member, the arguments that it takes, and what it answers.
struct Member {
    const char* name;
    std::string_view arguments;
    const char* answer;
};

constexpr Member members[] = {
    {"BeginObservingDirectoryAtURL", "s", ""},  {"EndObservingDirectoryAtURL", "s", ""},
    {"RequestBadgeIdentifierForURL", "s", "s"}, {"RequestBadgeIdentifiersForURLs", "as", "as"},
    {"MenuForMenuKind", "uas", "ba(sss)"},      {"PerformAction", "sas", ""},
};

/// Settings with a port that reaches nobody, in a folder of this process's own, which scripts/fuzz
/// removes.
void writeSettings() {
    static const std::filesystem::path folder = [] {
        std::string name = std::filesystem::temp_directory_path() / "fuzz-bus-XXXXXX";
        require(::mkdtemp(name.data()) != nullptr, "no folder for the settings");
        const auto suite = std::filesystem::path(name) / findersync::applicationGroup;
        std::filesystem::create_directory(suite);
        std::ofstream(suite / "settings.json") << R"({"ServerPort":0,"RootFolder":"/home"})";
        (void)::setenv("XDG_CONFIG_HOME", name.c_str(), 1);
        return name;
    }();
}

sd_event* eventLoop() {
    return platform::linux_backend::runLoopOfThisThread().event();
}

/// Both ends of a connection without a daemon, served by the run loop of this thread.
struct Connection {
    Connection() {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0,
                "no pair of sockets");
        require(sd_bus_new(Out(service)) >= 0 && sd_bus_new(Out(caller)) >= 0, "no connection");
        sd_id128_t server{};
        require(sd_id128_randomize(&server) >= 0 &&
                    sd_bus_set_server(service.get(), 1, server) >= 0,
                "no server");
        for (const auto& [bus, end] : {std::pair(service.get(), ends[0]), {caller.get(), ends[1]}})
            require(sd_bus_set_fd(bus, end, end) >= 0 && sd_bus_set_anonymous(bus, 1) >= 0 &&
                        sd_bus_start(bus) >= 0 &&
                        sd_bus_attach_event(bus, eventLoop(), SD_EVENT_PRIORITY_NORMAL) >= 0,
                    "an end of the connection cannot be used");
    }

    process::Bus service;
    process::Bus caller;
};

/// The extension and its service, new for each input; the connection lasts.
class Session {
public:
    Session(const Connection& connection, FuzzedDataProvider& bytes)
        : bus_(connection.caller.get()),
          bytes_(bytes),
          service_(connection.service.get(), extension_,
                   platform::linux_backend::finderSyncController()) {
        require(extension_.init() != nullptr && service_.publish() >= 0, "no service");
    }

    void callMember() {
        const Member& member = bytes_.PickValueInArray(members);
        const Message call = newCall(findersync::interfaceName, member.name);
        if (append(call.get(), member.arguments))
            requireAnswer(call, member.answer, true);
    }

    void getProperties() {
        const Message call = newCall("org.freedesktop.DBus.Properties", "GetAll");
        require(sd_bus_message_append(call.get(), "s", findersync::interfaceName) >= 0,
                "no message");
        requireAnswer(call, "a{sv}", false);
    }

    /// As the companion may: with any text, also one that sd-bus refuses.
    void changeState() {
        const std::string text = bytes_.ConsumeRandomLengthString(100);
        if (!platform::text::isUTF8(text))
            return;
        extension_.setShareViaUrlTitle(text);
        extension_.setPathsOfRootFolders({"/home/" + text, "/home"});
    }

private:
    [[nodiscard]] Message newCall(const char* interfaceName, const char* member) const {
        Message message;
        require(sd_bus_message_new_method_call(bus_, Out(message), nullptr, findersync::objectPath,
                                               interfaceName, member) >= 0,
                "no message");
        return message;
    }

    /// Appends values of these types; false when sd-bus refuses one.
    bool append(sd_bus_message* message, std::string_view types) {
        if (types.empty())
            return true;
        if (types[0] == 'u')
            return sd_bus_message_append(message, "u", bytes_.ConsumeIntegral<std::uint32_t>()) >=
                       0 &&
                   append(message, types.substr(1));
        const std::string one = text();
        if (types[0] == 's')
            return sd_bus_message_append(message, "s", one.c_str()) >= 0 &&
                   append(message, types.substr(1));
        const int count = bytes_.ConsumeIntegralInRange(0, 2);
        return sd_bus_message_append(message, "as", count, one.c_str(), text().c_str()) >= 0 &&
               append(message, types.substr(2));
    }

    /// A text that often is the URL of something in the watched folder.
    std::string text() {
        std::string made = bytes_.ConsumeRandomLengthString(300);
        if (bytes_.ConsumeBool())
            made.insert(0, "file:///home/");
        return made;
    }

    /// Waits without a timeout: on a busy machine libFuzzer knows better what is too long.
    void requireAnswer(const Message& call, const char* signature, bool mayBeError) const {
        Message answer;
        const auto receive = [](sd_bus_message* reply, void* place, sd_bus_error*) {
            static_cast<Message*>(place)->reset(sd_bus_message_ref(reply));
            return 0;
        };
        require(sd_bus_call_async(bus_, nullptr, call.get(), receive, &answer, UINT64_MAX) >= 0,
                "a call cannot be sent");
        while (!answer)
            require(sd_event_run(eventLoop(), UINT64_MAX) >= 0, "the run loop fails");
        const bool isError = sd_bus_message_is_method_error(answer.get(), nullptr) != 0;
        require(isError ? mayBeError : sd_bus_message_has_signature(answer.get(), signature) > 0,
                "another answer");
    }

    sd_bus* bus_;
    FuzzedDataProvider& bytes_;
    hosts::linux_host::ObservedFinderSync extension_;
    hosts::linux_host::ExtensionService service_;
};

/// Drains the loop, so that no event of one input, such as a change signal, reaches the next.
void runUntilIdle() {
    while (sd_event_run(eventLoop(), 0) > 0) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    writeSettings();
    static const Connection connection;
    FuzzedDataProvider bytes(data, size);
    Session session(connection, bytes);
    for (int count = 0; count < 20 && bytes.remaining_bytes() > 0; ++count) {
        using Step = void (Session::*)();
        static constexpr Step steps[] = {&Session::changeState, &Session::getProperties,
                                         &Session::callMember, &Session::callMember};
        (session.*bytes.PickValueInArray(steps))();
    }
    runUntilIdle();
    return 0;
}

// Calls the service over a real sd-bus connection within this process. Every call must be answered,
// and none may be fatal.

#include "Names.h"
#include "fuzz/Difference.h"
#include "hosts/linux/ExtensionService.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "platform/linux/RunLoop.h"
#include "platform/text/Unicode.h"
#include "process/SystemdHandles.h"

#include <algorithm>
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

constexpr const char* properties = "org.freedesktop.DBus.Properties";

/// A member, the arguments that it takes, and what it answers.
struct Member {
    const char* name;
    const char* arguments;
    const char* answer = "";
};

constexpr Member members[] = {
    {"BeginObservingDirectoryAtURL", "s"},      {"EndObservingDirectoryAtURL", "s"},
    {"RequestBadgeIdentifierForURL", "s", "s"}, {"RequestBadgeIdentifiersForURLs", "as", "as"},
    {"MenuForMenuKind", "uas", "ba(sss)"},      {"PerformAction", "sas"},
};

/// All properties, also those that cannot be written.
constexpr Member propertiesOfObject[] = {
    {"myFolderURL", "s"},       {"pathsOfRootFolders", "as"}, {"serverPort", "u"},
    {"isSocketConnected", "b"}, {"displayUrlLink", "x"},      {"displayBackup", "x"},
    {"shareContactTitle", "s"}, {"shareViaUrlTitle", "s"},    {"backupTitle", "s"},
    {"serverAddress", "s"},     {"directoryURLs", "as"},      {"badges", "as"},
};

constexpr const char* signatures[] = {"", "s", "as", "uas", "sas", "v", "b", "x", "u", "d"};

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

/// A caller that makes its arguments from the fuzzer's bytes.
class Caller {
public:
    Caller(sd_bus* bus, FuzzedDataProvider& bytes) : bus_(bus), bytes_(bytes) {}

    [[nodiscard]] Message call(const char* interfaceName, const char* member) const {
        Message message;
        require(sd_bus_message_new_method_call(bus_, Out(message), nullptr, findersync::objectPath,
                                               interfaceName, member) >= 0,
                "no message");
        return message;
    }

    /// Appends one value for each type of the signature; false when sd-bus refuses one.
    bool append(sd_bus_message* message, std::string_view signature) {
        while (!signature.empty()) {
            const std::size_t length = signature.starts_with('a') ? 2 : 1;
            if (!appendOne(message, signature.substr(0, length)))
                return false;
            signature.remove_prefix(length);
        }
        return true;
    }

    /// Appends a variant of some type, mostly of the given one.
    bool appendVariant(sd_bus_message* message, const std::string& usual) {
        const std::string type = bytes_.ConsumeIntegralInRange(0, 9) < 9
                                     ? usual
                                     : bytes_.PickValueInArray({"s", "as", "b", "x", "u", "d"});
        return sd_bus_message_open_container(message, 'v', type.c_str()) >= 0 &&
               appendOne(message, type) && sd_bus_message_close_container(message) >= 0;
    }

    /// Sends a call and waits for the answer. Without a timeout of its own: on a busy machine
    /// libFuzzer knows better what is too long.
    [[nodiscard]] Message answer(const Message& call) const {
        Message answer;
        const auto receive = [](sd_bus_message* reply, void* place, sd_bus_error*) {
            static_cast<Message*>(place)->reset(sd_bus_message_ref(reply));
            return 0;
        };
        require(sd_bus_call_async(bus_, nullptr, call.get(), receive, &answer, UINT64_MAX) >= 0,
                "a call cannot be sent");
        while (!answer)
            require(sd_event_run(eventLoop(), UINT64_MAX) >= 0, "the run loop fails");
        return answer;
    }

    /// A text that often is the URL of something in the watched folder.
    std::string text() {
        std::string made = bytes_.ConsumeRandomLengthString(300);
        if (bytes_.ConsumeBool())
            made.insert(0, "file:///home/");
        return made;
    }

    FuzzedDataProvider& bytes() { return bytes_; }

private:
    bool appendOne(sd_bus_message* message, std::string_view type) {
        if (type == "s")
            return sd_bus_message_append_basic(message, 's', text().c_str()) >= 0;
        if (type == "v")
            return appendVariant(message, "s");
        if (type.starts_with('a'))
            return appendTexts(message);
        const auto number = bytes_.ConsumeIntegral<std::int64_t>();
        const int boolean = static_cast<int>(number & 1);
        const void* const value = type == "b" ? static_cast<const void*>(&boolean) : &number;
        return sd_bus_message_append_basic(message, type[0], value) >= 0;
    }

    bool appendTexts(sd_bus_message* message) {
        bool isTaken = sd_bus_message_open_container(message, 'a', "s") >= 0;
        for (int count = bytes_.ConsumeIntegralInRange(0, 4); isTaken && count > 0; --count)
            isTaken = sd_bus_message_append_basic(message, 's', text().c_str()) >= 0;
        return isTaken && sd_bus_message_close_container(message) >= 0;
    }

    sd_bus* bus_;
    FuzzedDataProvider& bytes_;
};

/// The extension and its service, new for each input; the connection lasts.
class Session {
public:
    Session(const Connection& connection, FuzzedDataProvider& bytes)
        : caller_(connection.caller.get(), bytes),
          service_(connection.service.get(), extension_,
                   platform::linux_backend::finderSyncController()) {
        require(extension_.init() != nullptr && service_.publish() >= 0, "no service");
    }

    void callMember() {
        const Member& member = caller_.bytes().PickValueInArray(members);
        const bool isRight = caller_.bytes().ConsumeIntegralInRange(0, 9) < 9;
        const Message call = caller_.call(findersync::interfaceName, member.name);
        if (!caller_.append(call.get(), isRight ? member.arguments
                                                : caller_.bytes().PickValueInArray(signatures)))
            return;
        const Message answer = caller_.answer(call);
        if (sd_bus_message_is_method_error(answer.get(), nullptr) != 0)
            return;
        require(sd_bus_message_has_signature(answer.get(), member.answer) > 0, "another answer");
        require(std::string_view(member.arguments) == sd_bus_message_get_signature(call.get(), 1),
                "wrong arguments are taken");
    }

    void setProperty() {
        const Member& property = caller_.bytes().PickValueInArray(propertiesOfObject);
        const Message call = caller_.call(properties, "Set");
        if (sd_bus_message_append(call.get(), "ss", findersync::interfaceName, property.name) >=
                0 &&
            caller_.appendVariant(call.get(), property.arguments))
            (void)caller_.answer(call);
    }

    void getProperties() {
        const Message call = caller_.call(properties, "GetAll");
        require(sd_bus_message_append_basic(call.get(), 's', findersync::interfaceName) >= 0,
                "no message");
        const Message answer = caller_.answer(call);
        require(sd_bus_message_has_signature(answer.get(), "a{sv}") > 0,
                "properties cannot be read");
    }

    void announceFolders() {
        std::vector<std::string> paths;
        for (int count = caller_.bytes().ConsumeIntegralInRange(0, 3); count > 0; --count) {
            std::string path = "/home/" + caller_.bytes().ConsumeRandomLengthString(100);
            if (platform::text::isUTF8(path))
                paths.push_back(std::move(path));
        }
        extension_.setPathsOfRootFolders(std::move(paths));
    }

private:
    Caller caller_;
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
        static constexpr Step steps[] = {&Session::announceFolders, &Session::setProperty,
                                         &Session::getProperties,   &Session::callMember,
                                         &Session::callMember,      &Session::callMember};
        (session.*bytes.PickValueInArray(steps))();
    }
    runUntilIdle();
    return 0;
}

// Calls the service over a real sd-bus connection within this process. Every call must be answered,
// and none may be fatal.

#include "fuzz/Difference.h"
#include "hosts/linux/ExtensionService.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "platform/text/Unicode.h"
#include "tests/hosts/linux/BusPair.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>
#include <string_view>

using findersync::fuzz::require;
using process::Message;

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

/// The extension and its service, new for each input; the connection lasts.
class Session {
public:
    Session(const tests::BusPair& bus, FuzzedDataProvider& bytes)
        : bus_(bus),
          bytes_(bytes),
          service_(bus.service.get(), extension_, platform::linux_backend::finderSyncController()) {
        require(extension_.init() != nullptr && service_.publish() >= 0, "no service");
    }

    void callMember() {
        const Member& member = bytes_.PickValueInArray(members);
        const Message call = bus_.newCall(findersync::interfaceName, member.name);
        if (append(call.get(), member.arguments))
            requireAnswer(call, member.answer, true);
    }

    void getProperties() {
        const Message call = bus_.newCall("org.freedesktop.DBus.Properties", "GetAll");
        tests::require(sd_bus_message_append(call.get(), "s", findersync::interfaceName));
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

    void requireAnswer(const Message& call, const char* signature, bool mayBeError) const {
        const Message answer = bus_.answer(call);
        const bool isError = sd_bus_message_is_method_error(answer.get(), nullptr) != 0;
        require(isError ? mayBeError : sd_bus_message_has_signature(answer.get(), signature) > 0,
                "another answer");
    }

    const tests::BusPair& bus_;
    FuzzedDataProvider& bytes_;
    hosts::linux_host::ObservedFinderSync extension_;
    hosts::linux_host::ExtensionService service_;
};

/// Drains the loop, so that no event of one input, such as a change signal, reaches the next.
void runUntilIdle() {
    while (sd_event_run(tests::BusPair::loop(), 0) > 0) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    writeSettings();
    static const tests::BusPair bus;
    FuzzedDataProvider bytes(data, size);
    Session session(bus, bytes);
    for (int count = 0; count < 20 && bytes.remaining_bytes() > 0; ++count) {
        using Step = void (Session::*)();
        static constexpr Step steps[] = {&Session::changeState, &Session::getProperties,
                                         &Session::callMember, &Session::callMember};
        (session.*bytes.PickValueInArray(steps))();
    }
    runUntilIdle();
    return 0;
}

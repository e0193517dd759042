// The object on the bus, behind a real connection of sd-bus to a peer in the same process. Every
// call is answered, and nothing that arrives is fatal.

#include "fuzz/Difference.h"
#include "hosts/linux/ExtensionService.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "platform/linux/RunLoop.h"
#include "platform/linux/Text.h"
#include "platform/linux/URL.h"

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

namespace {

constexpr const char* object = "/FinderSync";
constexpr const char* interface = "findersync.Extension1";
constexpr const char* properties = "org.freedesktop.DBus.Properties";

/// A member, the arguments that it takes, and what it answers.
struct Member {
    const char* name;
    const char* arguments;
    const char* answer;
};

constexpr Member members[] = {
    {"BeginObservingDirectoryAtURL", "s", ""},  {"EndObservingDirectoryAtURL", "s", ""},
    {"RequestBadgeIdentifierForURL", "s", "s"}, {"RequestBadgeIdentifiersForURLs", "as", "as"},
    {"MenuForMenuKind", "uas", "ba(sss)"},      {"PerformAction", "sas", ""},
};

constexpr Member writableProperties[] = {
    {"myFolderURL", "s", ""},       {"pathsOfRootFolders", "as", ""}, {"serverPort", "u", ""},
    {"isSocketConnected", "b", ""}, {"displayUrlLink", "x", ""},      {"displayBackup", "x", ""},
    {"shareContactTitle", "s", ""}, {"shareViaUrlTitle", "s", ""},    {"backupTitle", "s", ""},
    {"serverAddress", "s", ""},     {"directoryURLs", "as", ""},      {"badges", "a{s(ss)}", ""},
};

constexpr const char* signatures[] = {"",  "s", "as", "uas", "sas", "v",
                                      "b", "x", "u",  "ay",  "d",   "g"};

/// Settings in a folder of this process's own, with a port that reaches nobody.
void writeSettings() {
    static const struct Folder {
        Folder() {
            std::string name = std::filesystem::temp_directory_path() / "fuzz-bus-XXXXXX";
            require(::mkdtemp(name.data()) != nullptr, "no folder for the settings");
            path = name;
            const auto settings = path / FINDER_SYNC_GROUP / "settings.json";
            std::filesystem::create_directories(settings.parent_path());
            std::ofstream(settings) << R"({"ServerPort":0,"RootFolder":"/home"})";
            (void)::setenv("XDG_CONFIG_HOME", path.c_str(), 1);
        }
        ~Folder() { std::filesystem::remove_all(path); }
        Folder(const Folder&) = delete;
        Folder& operator=(const Folder&) = delete;

        std::filesystem::path path;
    } folder;
}

/// Both ends of a connection without a daemon, served by the run loop of this thread.
class Connection {
public:
    Connection() {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0,
                "no pair of sockets");
        sd_id128_t server{};
        require(sd_id128_randomize(&server) >= 0 && sd_bus_new(&service_) >= 0 &&
                    sd_bus_set_fd(service_, ends[0], ends[0]) >= 0 &&
                    sd_bus_set_server(service_, 1, server) >= 0 &&
                    sd_bus_set_anonymous(service_, 1) >= 0 && sd_bus_start(service_) >= 0,
                "no service's end");
        require(sd_bus_new(&caller_) >= 0 && sd_bus_set_fd(caller_, ends[1], ends[1]) >= 0 &&
                    sd_bus_set_anonymous(caller_, 1) >= 0 && sd_bus_start(caller_) >= 0,
                "no caller's end");
        for (sd_bus* const bus : {service_, caller_})
            require(sd_bus_attach_event(bus, event(), SD_EVENT_PRIORITY_NORMAL) >= 0,
                    "no run loop");
    }
    ~Connection() {
        for (sd_bus* const bus : {caller_, service_}) {
            sd_bus_close(bus);
            sd_bus_unref(bus);
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] sd_bus* service() const { return service_; }
    [[nodiscard]] sd_bus* caller() const { return caller_; }

    static sd_event* event() { return platform::linux_backend::runLoopOfThisThread().event(); }

private:
    sd_bus* service_ = nullptr;
    sd_bus* caller_ = nullptr;
};

using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

/// A caller that makes its arguments of the fuzzer's bytes.
class Caller {
public:
    Caller(sd_bus* bus, FuzzedDataProvider& bytes) : bus_(bus), bytes_(bytes) {}

    [[nodiscard]] Message call(const char* interfaceName, const char* member) const {
        sd_bus_message* message = nullptr;
        require(sd_bus_message_new_method_call(bus_, &message, nullptr, object, interfaceName,
                                               member) >= 0,
                "no message");
        return {message, sd_bus_message_unref};
    }

    /// Appends one value for each type of the signature; false when sd-bus refuses one.
    bool append(sd_bus_message* message, std::string_view signature) {
        while (!signature.empty()) {
            const std::size_t length =
                signature.starts_with("as") || signature.starts_with("ay") ? 2 : 1;
            if (!appendOne(message, signature.substr(0, length)))
                return false;
            signature.remove_prefix(length);
        }
        return true;
    }

    /// Sends a call and waits for the answer. Without a limit of its own: on a busy machine
    /// libFuzzer knows better what is too long.
    [[nodiscard]] Message answer(const Message& call) const {
        struct Answer {
            sd_bus_message* message = nullptr;
        } answer;
        const auto receive = [](sd_bus_message* reply, void* place, sd_bus_error*) {
            static_cast<Answer*>(place)->message = sd_bus_message_ref(reply);
            return 0;
        };
        require(sd_bus_call_async(bus_, nullptr, call.get(), receive, &answer, UINT64_MAX) >= 0,
                "a call cannot be sent");
        while (answer.message == nullptr)
            require(sd_event_run(Connection::event(), UINT64_MAX) >= 0, "the run loop fails");
        return {answer.message, sd_bus_message_unref};
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
        if (type == "s" || type == "g") {
            const std::string value = type == "g" ? "s" : text();
            return sd_bus_message_append_basic(message, type[0], value.c_str()) >= 0;
        }
        if (type == "as")
            return appendTexts(message);
        if (type == "ay") {
            const auto array =
                bytes_.ConsumeBytes<std::uint8_t>(bytes_.ConsumeIntegralInRange<std::size_t>(0, 9));
            return sd_bus_message_append_array(message, 'y', array.data(), array.size()) >= 0;
        }
        if (type == "v") {
            const char* const inner = bytes_.PickValueInArray(signatures);
            const bool isSingle =
                *inner != '\0' && *inner != 'v' && std::string_view(inner).size() < 3;
            const std::string_view single = isSingle ? inner : "s";
            return sd_bus_message_open_container(message, 'v', std::string(single).c_str()) >= 0 &&
                   appendOne(message, single) && sd_bus_message_close_container(message) >= 0;
        }
        const auto number = bytes_.ConsumeIntegral<std::int64_t>();
        const int boolean = static_cast<int>(number & 1);
        return sd_bus_message_append_basic(message, type[0],
                                           type == "b" ? static_cast<const void*>(&boolean)
                                                       : &number) >= 0;
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
        : caller_(connection.caller(), bytes),
          service_(connection.service(), extension_,
                   platform::linux_backend::finderSyncController()) {
        require(extension_.init() != nullptr && service_.publish() >= 0, "no service");
    }

    void callMember() {
        const Member& member = caller_.bytes().PickValueInArray(members);
        const bool isRight = caller_.bytes().ConsumeIntegralInRange(0, 9) < 9;
        const Message call = caller_.call(interface, member.name);
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

    /// A badge is shown on root folders in the watched one, and on nothing else.
    void requestBadge() {
        const std::string url = caller_.text();
        const Message call = caller_.call(interface, "RequestBadgeIdentifierForURL");
        if (sd_bus_message_append_basic(call.get(), 's', url.c_str()) < 0)
            return;
        const Message answer = caller_.answer(call);
        std::string failure;
        const auto known = platform::linux_backend::fileURLWithString(url.c_str(), failure);
        const char* badge = nullptr;
        const bool isAnswered = sd_bus_message_read_basic(answer.get(), 's', &badge) > 0 &&
                                sd_bus_message_is_method_error(answer.get(), nullptr) == 0;
        require(isAnswered == (known != nullptr), "a URL is taken, or is not");
        if (!known)
            return;
        const std::string path = known->path().value_or("");
        const bool isRoot =
            std::ranges::any_of(extension_.pathsOfRootFolders(), [&](const auto& root) {
                return platform::linux_backend::areCanonicallyEquivalent(root, path);
            });
        const bool isWatched = platform::linux_backend::isInFolder(path, "/home");
        require(std::string_view(badge) == (isRoot && isWatched ? "FolderIco" : ""),
                "another badge");
    }

    /// What can be written is read back, and what cannot be written stays.
    void setProperty() {
        const Member& property = caller_.bytes().PickValueInArray(writableProperties);
        const Message call = caller_.call(properties, "Set");
        const bool isRight = caller_.bytes().ConsumeIntegralInRange(0, 9) < 9;
        bool isMade = sd_bus_message_append(call.get(), "ss", interface, property.name) >= 0;
        if (isRight && property.arguments[0] != 'a')
            isMade = isMade &&
                     sd_bus_message_open_container(call.get(), 'v', property.arguments) >= 0 &&
                     caller_.append(call.get(), property.arguments) &&
                     sd_bus_message_close_container(call.get()) >= 0;
        else
            isMade = isMade && caller_.append(call.get(), "v");
        if (isMade)
            (void)caller_.answer(call);
    }

    void getProperties() {
        const Message call = caller_.call(properties, "GetAll");
        require(sd_bus_message_append_basic(call.get(), 's', interface) >= 0, "no message");
        const Message answer = caller_.answer(call);
        require(sd_bus_message_has_signature(answer.get(), "a{sv}") > 0,
                "properties cannot be read");
    }

    void announceFolders() {
        std::vector<std::string> paths;
        for (int count = caller_.bytes().ConsumeIntegralInRange(0, 3); count > 0; --count) {
            std::string path = "/home/" + caller_.bytes().ConsumeRandomLengthString(100);
            if (platform::linux_backend::isUTF8(path))
                paths.push_back(std::move(path));
        }
        extension_.setPathsOfRootFolders(std::move(paths));
    }

private:
    Caller caller_;
    findersync::ObservedFinderSync extension_;
    findersync::ExtensionService service_;
};

/// What is left of one input, change signals among it, shall not reach the next one.
void runUntilIdle() {
    while (sd_event_run(Connection::event(), 0) > 0) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    writeSettings();
    static const Connection connection;
    FuzzedDataProvider bytes(data, size);
    Session session(connection, bytes);
    for (int count = 0; count < 20 && bytes.remaining_bytes() > 0; ++count) {
        switch (bytes.ConsumeIntegralInRange(0, 7)) {
        case 0:
            session.announceFolders();
            break;
        case 1:
        case 2:
            session.requestBadge();
            break;
        case 3:
            session.setProperty();
            break;
        case 4:
            session.getProperties();
            break;
        default:
            session.callMember();
            break;
        }
    }
    runUntilIdle();
    return 0;
}

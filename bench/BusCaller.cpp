#include "bench/BusCaller.h"

#include <cstring>
#include <stdexcept>

namespace findersync::bench {

namespace {

constexpr const char* objectPath = "/FinderSync";
constexpr const char* interfaceName = "findersync.Extension1";
constexpr std::uint64_t patienceInMicroseconds = 10'000'000;

int require(int result) {
    if (result < 0)
        throw std::runtime_error(std::string("a call over the bus failed: ") +
                                 std::strerror(-result));
    return result;
}

int append(sd_bus_message* message, const std::string& text) {
    return sd_bus_message_append(message, "v", "s", text.c_str());
}

int append(sd_bus_message* message, std::int64_t number) {
    return sd_bus_message_append(message, "v", "x", number);
}

int append(sd_bus_message* message, const std::vector<std::string>& list) {
    require(sd_bus_message_open_container(message, 'v', "as"));
    require(sd_bus_message_open_container(message, 'a', "s"));
    for (const std::string& text : list)
        require(sd_bus_message_append_basic(message, 's', text.c_str()));
    require(sd_bus_message_close_container(message));
    return sd_bus_message_close_container(message);
}

} // namespace

BusCaller::BusCaller() {
    sd_bus* bus = nullptr;
    require(sd_bus_open_user(&bus));
    bus_.reset(bus);
}

pid_t BusCaller::daemon() const {
    sd_bus_creds* credentials = nullptr;
    require(sd_bus_get_owner_creds(bus_.get(), SD_BUS_CREDS_PID, &credentials));
    pid_t process = 0;
    const int result = sd_bus_creds_get_pid(credentials, &process);
    sd_bus_creds_unref(credentials);
    require(result);
    return process;
}

BusCaller::Answer BusCaller::requestBadge(const std::string& service,
                                          const std::string& url) const {
    const Message request = newCall(service, interfaceName, "RequestBadgeIdentifierForURL");
    require(sd_bus_message_append_basic(request.get(), 's', url.c_str()));
    const Message reply = call(request);
    const char* badge = nullptr;
    require(sd_bus_message_read_basic(reply.get(), 's', &badge));
    return {badge};
}

BusCaller::Answer BusCaller::menu(const std::string& service, const std::string& url) const {
    const Message request = newCall(service, interfaceName, "MenuForMenuKind");
    require(sd_bus_message_append(request.get(), "uas", 0, 1, url.c_str()));
    const Message reply = call(request);
    int isOffered = 0;
    require(sd_bus_message_read_basic(reply.get(), 'b', &isOffered));
    require(sd_bus_message_enter_container(reply.get(), 'a', "(sss)"));
    Answer answer;
    const char* title = nullptr;
    const char* action = nullptr;
    const char* image = nullptr;
    while (require(sd_bus_message_read(reply.get(), "(sss)", &title, &action, &image)) > 0)
        answer.insert(answer.end(), {title, action, image});
    return answer;
}

void BusCaller::setProperty(const std::string& service, const char* name,
                            const Value& value) const {
    const Message request = newCall(service, "org.freedesktop.DBus.Properties", "Set");
    require(sd_bus_message_append(request.get(), "ss", interfaceName, name));
    std::visit([&](const auto& content) { require(append(request.get(), content)); }, value);
    (void)call(request);
}

BusCaller::Message BusCaller::newCall(const std::string& service, const char* interface,
                                      const char* method) const {
    sd_bus_message* message = nullptr;
    require(sd_bus_message_new_method_call(bus_.get(), &message, service.c_str(), objectPath,
                                           interface, method));
    return Message(message);
}

BusCaller::Message BusCaller::call(const Message& request) const {
    sd_bus_message* reply = nullptr;
    require(sd_bus_call(bus_.get(), request.get(), patienceInMicroseconds, nullptr, &reply));
    return Message(reply);
}

} // namespace findersync::bench

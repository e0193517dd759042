// What the object has on the bus, compared with the object's own table.

#include "Names.h"
#include "extension/PublishedInterface.h"
#include "hosts/linux/ExtensionService.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "platform/linux/FinderSyncController.h"
#include "platform/linux/RunLoop.h"
#include "process/SystemdHandles.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <systemd/sd-id128.h>
#include <utility>
#include <variant>
#include <vector>

using process::Message;
using process::Out;

namespace {

void require(int result) {
    if (result < 0)
        throw std::runtime_error("sd-bus gives " + std::to_string(result));
}

/// An extension that records reports of clicks instead of sending them.
class ReportingExtension : public hosts::linux_host::ObservedFinderSync {
public:
    void sendClickedData(const std::string& clickType) override { reports.push_back(clickType); }

    std::vector<std::string> reports;
};

/// The service at one end of a connection without a daemon, and the test as the caller at the
/// other.
class PublishedMembers : public testing::Test {
protected:
    PublishedMembers() {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
        open(serviceBus_, ends[0], true);
        open(callerBus_, ends[1], false);
        service_ = std::make_unique<hosts::linux_host::ExtensionService>(
            serviceBus_.get(), extension, platform::linux_backend::finderSyncController());
        require(service_->publish());
    }

    Message newCall(const char* interface, const char* member) {
        Message call;
        require(sd_bus_message_new_method_call(callerBus_.get(), Out(call), nullptr,
                                               findersync::objectPath, interface, member));
        return call;
    }

    Message answer(const Message& call) {
        Message received;
        const auto receive = [](sd_bus_message* reply, void* place, sd_bus_error*) {
            static_cast<Message*>(place)->reset(sd_bus_message_ref(reply));
            return 0;
        };
        require(sd_bus_call_async(callerBus_.get(), nullptr, call.get(), receive, &received, 0));
        while (!received)
            require(sd_event_run(loop(), UINT64_MAX));
        return received;
    }

    ReportingExtension extension;

private:
    static sd_event* loop() { return platform::linux_backend::runLoopOfThisThread().event(); }

    static void open(process::Bus& bus, int end, bool isServer) {
        require(sd_bus_new(Out(bus)));
        sd_id128_t server{};
        require(sd_id128_randomize(&server));
        if (isServer)
            require(sd_bus_set_server(bus.get(), 1, server));
        require(sd_bus_set_fd(bus.get(), end, end));
        require(sd_bus_set_anonymous(bus.get(), 1));
        require(sd_bus_start(bus.get()));
        require(sd_bus_attach_event(bus.get(), loop(), SD_EVENT_PRIORITY_NORMAL));
    }

    process::Bus serviceBus_;
    process::Bus callerBus_;
    std::unique_ptr<hosts::linux_host::ExtensionService> service_;
};

struct TypeOnTheBus {
    std::string operator()(const findersync::URLProperty&) const { return "s"; }
    std::string operator()(const findersync::StringListProperty&) const { return "as"; }
    std::string operator()(const findersync::StringProperty&) const { return "s"; }
    std::string operator()(const findersync::PortProperty&) const { return "u"; }
    std::string operator()(const findersync::BooleanProperty&) const { return "b"; }
    std::string operator()(const findersync::IntegerProperty&) const { return "x"; }
};

TEST_F(PublishedMembers, PropertiesAreThoseOfTheTableAndTheTwoOfTheFinder) {
    std::map<std::string, std::string> expected{{"directoryURLs", "as read"},
                                                {"badges", "a{s(ss)} read"}};
    for (const auto& property : findersync::publishedProperties())
        expected.emplace(property.name, std::visit(TypeOnTheBus(), property.accessors) +
                                            (property.isWritable() ? " readwrite" : " read"));

    const Message reply = answer(newCall("org.freedesktop.DBus.Introspectable", "Introspect"));
    const char* text = nullptr;
    require(sd_bus_message_read_basic(reply.get(), 's', &text));
    const std::string xml = text;
    std::map<std::string, std::string> published;
    const std::regex property(R"re(<property name="(\w+)" type="([^"]+)" access="(\w+)">)re");
    for (std::sregex_iterator found(xml.begin(), xml.end(), property), end; found != end; ++found)
        published.emplace((*found)[1], found->str(2) + " " + found->str(3));
    EXPECT_EQ(published, expected);
}

TEST_F(PublishedMembers, AListThatIsTooLongForAMessageHidesNoOtherProperty) {
    extension.setPathsOfRootFolders({std::string(std::size_t{33} << 20U, 'x')});
    const auto ask = [this](const char* member, const char* property) {
        const Message call = newCall("org.freedesktop.DBus.Properties", member);
        require(sd_bus_message_append(call.get(), "s", findersync::interfaceName));
        if (property != nullptr)
            require(sd_bus_message_append(call.get(), "s", property));
        return answer(call);
    };
    EXPECT_EQ(sd_bus_message_is_method_error(ask("GetAll", nullptr).get(), nullptr), 0);
    EXPECT_EQ(sd_bus_message_is_method_error(ask("Get", "directoryURLs").get(), nullptr), 0);
    EXPECT_GT(sd_bus_message_is_method_error(ask("Get", "pathsOfRootFolders").get(),
                                             SD_BUS_ERROR_LIMITS_EXCEEDED),
              0);
}

TEST_F(PublishedMembers, PerformActionTakesTheActionsOfTheTableAndNoOtherSelector) {
    std::size_t accepted = 0;
    const auto perform = [&](const std::string& selector, bool isAction) {
        const Message call = newCall(findersync::interfaceName, "PerformAction");
        require(sd_bus_message_append(call.get(), "sas", selector.c_str(), 0));
        const Message reply = answer(call);
        EXPECT_EQ(sd_bus_message_is_method_error(reply.get(), nullptr) == 0, isAction) << selector;
        accepted += isAction ? 1 : 0;
        EXPECT_EQ(extension.reports.size(), accepted) << selector;
    };
    for (const auto& method : findersync::publishedMethods())
        perform(std::string(method.selector),
                std::holds_alternative<findersync::Action>(method.method));
    EXPECT_EQ(accepted, 6U);
    for (const auto& property : findersync::publishedProperties()) {
        perform(std::string(property.name), false);
        perform(property.setterSelector(), false);
    }
}

TEST(LinkState, IsNeverTriedBeforeTheExtensionConnects) {
    EXPECT_EQ(hosts::linux_host::ObservedFinderSync().linkState(),
              hosts::linux_host::LinkState::NeverTried);
}

} // namespace

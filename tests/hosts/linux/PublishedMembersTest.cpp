// What the object has on the bus, compared with the object's own table.

#include "extension/PublishedInterface.h"
#include "hosts/linux/ExtensionService.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "platform/linux/FinderSyncController.h"
#include "tests/hosts/linux/BusPair.h"

#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

using process::Message;
using tests::require;

namespace {

/// An extension that records reports of clicks instead of sending them.
class ReportingExtension : public hosts::linux_host::ObservedFinderSync {
public:
    void sendClickedData(const std::string& clickType) override { reports.push_back(clickType); }

    std::vector<std::string> reports;
};

class PublishedMembers : public testing::Test, protected tests::BusPair {
protected:
    PublishedMembers() { require(service_.publish()); }

    ReportingExtension extension;

private:
    hosts::linux_host::ExtensionService service_{service.get(), extension,
                                                 platform::linux_backend::finderSyncController()};
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
    std::istringstream lines(text);
    std::map<std::string, std::string> published;
    for (std::string line; std::getline(lines, line);) {
        std::array<char, 64> name{};
        std::array<char, 64> type{};
        std::array<char, 64> access{};
        if (std::sscanf(line.c_str(),
                        R"( <property name="%63[^"]" type="%63[^"]" access="%63[^"]")", name.data(),
                        type.data(), access.data()) == 3)
            published.emplace(name.data(), std::string(type.data()) + " " + access.data());
    }
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

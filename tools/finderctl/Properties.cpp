#include "tools/finderctl/Properties.h"

#include "tools/console/JSON.h"
#include "tools/console/Text.h"
#include "tools/finderctl/ExtensionProxy.h"

#include <cstdint>
#include <string_view>
#include <utility>

namespace finderctl {

namespace {

constexpr const char* answerFailed = "the extension's answer cannot be understood";

void enter(sd_bus_message* message, char type, const char* contents) {
    check(sd_bus_message_enter_container(message, type, contents), answerFailed);
}

bool enterNext(sd_bus_message* message, char type, const char* contents) {
    const int result = sd_bus_message_enter_container(message, type, contents);
    check(result, answerFailed);
    return result > 0;
}

void leave(sd_bus_message* message) {
    check(sd_bus_message_exit_container(message), answerFailed);
}

template <typename Value> Value readBasic(sd_bus_message* message, char type) {
    Value value{};
    check(sd_bus_message_read_basic(message, type, &value), answerFailed);
    return value;
}

void setSingle(Property& property, std::string json, const std::string& text) {
    property.json = std::move(json);
    property.text = console::printable(text);
    property.lines = {property.text};
}

void readStrings(sd_bus_message* message, Property& property) {
    std::vector<std::string> elements;
    for (const std::string& element : readList(message)) {
        elements.push_back(console::jsonString(element));
        property.lines.push_back(console::printable(element));
    }
    property.json = console::jsonArray(elements);
    property.text = console::printable(property.json);
}

/// Badges: identifier, then image and label.
void readBadges(sd_bus_message* message, Property& property) {
    std::vector<console::JSONMember> badges;
    enter(message, 'a', "{s(ss)}");
    while (enterNext(message, 'e', "s(ss)")) {
        const std::string identifier = readBasic<const char*>(message, 's');
        enter(message, 'r', "ss");
        const std::string image = console::jsonString(readBasic<const char*>(message, 's'));
        const std::string label = console::jsonString(readBasic<const char*>(message, 's'));
        badges.emplace_back(identifier, console::jsonObject({{"image", image}, {"label", label}}));
        property.lines.push_back(console::printable(identifier + ": " + badges.back().second));
        leave(message);
        leave(message);
    }
    leave(message);
    property.json = console::jsonObject(badges);
    property.text = console::printable(property.json);
}

void readValue(sd_bus_message* message, std::string_view type, Property& property) {
    const auto setScalar = [&property](const std::string& json) {
        setSingle(property, json, json);
    };
    if (type == "s") {
        const std::string text = readBasic<const char*>(message, 's');
        setSingle(property, console::jsonString(text), text);
    } else if (type == "u") {
        setScalar(std::to_string(readBasic<std::uint32_t>(message, 'u')));
    } else if (type == "x") {
        setScalar(std::to_string(readBasic<std::int64_t>(message, 'x')));
    } else if (type == "b") {
        setScalar(readBasic<int>(message, 'b') != 0 ? "true" : "false");
    } else if (type == "as") {
        readStrings(message, property);
    } else if (type == "a{s(ss)}") {
        readBadges(message, property);
    } else {
        check(sd_bus_message_skip(message, std::string(type).c_str()), answerFailed);
        setScalar("null");
    }
}

} // namespace

Property readProperty(std::string name, sd_bus_message* message) {
    Property property{.name = std::move(name), .json = "", .text = "", .lines = {}};
    const char* type = nullptr;
    check(sd_bus_message_peek_type(message, nullptr, &type), answerFailed);
    enter(message, 'v', type);
    readValue(message, type, property);
    leave(message);
    return property;
}

std::vector<Property> readProperties(sd_bus_message* message) {
    std::vector<Property> properties;
    enter(message, 'a', "{sv}");
    while (enterNext(message, 'e', "sv")) {
        const char* const name = readBasic<const char*>(message, 's');
        properties.push_back(readProperty(name, message));
        leave(message);
    }
    leave(message);
    return properties;
}

std::string jsonOf(const std::vector<Property>& properties) {
    std::vector<console::JSONMember> members;
    members.reserve(properties.size());
    for (const Property& property : properties)
        members.emplace_back(property.name, property.json);
    return console::jsonObject(members);
}

} // namespace finderctl

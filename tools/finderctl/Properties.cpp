#include "tools/finderctl/Properties.h"

#include "tools/console/Text.h"
#include "tools/finderctl/Extension.h"

#include <cstdint>
#include <string_view>

namespace finderctl {

namespace {

namespace json = boost::json;

constexpr const char* whatFailed = "the extension's answer cannot be understood";

void enter(sd_bus_message* message, char type, const char* contents) {
    check(sd_bus_message_enter_container(message, type, contents), whatFailed);
}

bool enterNext(sd_bus_message* message, char type, const char* contents) {
    const int result = sd_bus_message_enter_container(message, type, contents);
    check(result, whatFailed);
    return result > 0;
}

void leave(sd_bus_message* message) {
    check(sd_bus_message_exit_container(message), whatFailed);
}

template <typename Value> Value readBasic(sd_bus_message* message, char type) {
    Value value{};
    check(sd_bus_message_read_basic(message, type, &value), whatFailed);
    return value;
}

json::array readStrings(sd_bus_message* message) {
    json::array list;
    enter(message, 'a', "s");
    while (sd_bus_message_at_end(message, 0) == 0)
        list.emplace_back(readBasic<const char*>(message, 's'));
    leave(message);
    return list;
}

/// Badges: identifier, then image and label.
json::object readBadges(sd_bus_message* message) {
    json::object badges;
    enter(message, 'a', "{s(ss)}");
    while (enterNext(message, 'e', "s(ss)")) {
        const char* const identifier = readBasic<const char*>(message, 's');
        enter(message, 'r', "ss");
        const char* const image = readBasic<const char*>(message, 's');
        const char* const label = readBasic<const char*>(message, 's');
        badges[identifier] = json::object{{"image", image}, {"label", label}};
        leave(message);
        leave(message);
    }
    leave(message);
    return badges;
}

json::value readValue(sd_bus_message* message, std::string_view type) {
    if (type == "s")
        return readBasic<const char*>(message, 's');
    if (type == "u")
        return readBasic<std::uint32_t>(message, 'u');
    if (type == "x")
        return readBasic<std::int64_t>(message, 'x');
    if (type == "b")
        return readBasic<int>(message, 'b') != 0;
    if (type == "as")
        return readStrings(message);
    if (type == "a{s(ss)}")
        return readBadges(message);
    check(sd_bus_message_skip(message, std::string(type).c_str()), whatFailed);
    return nullptr;
}

json::value readVariant(sd_bus_message* message) {
    const char* type = nullptr;
    check(sd_bus_message_peek_type(message, nullptr, &type), whatFailed);
    enter(message, 'v', type);
    json::value value = readValue(message, type);
    leave(message);
    return value;
}

} // namespace

json::object readProperties(sd_bus_message* message) {
    json::object properties;
    enter(message, 'a', "{sv}");
    while (enterNext(message, 'e', "sv")) {
        const char* const name = readBasic<const char*>(message, 's');
        properties[name] = readVariant(message);
        leave(message);
    }
    leave(message);
    return properties;
}

std::string textOfProperty(const json::value& value) {
    if (const auto* const text = value.if_string())
        return console::printable(*text);
    return console::printable(json::serialize(value));
}

} // namespace finderctl

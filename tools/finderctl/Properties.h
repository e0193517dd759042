#pragma once

#include <string>
#include <systemd/sd-bus.h>
#include <vector>

namespace finderctl {

/// A property of the extension, in the forms in which it is printed. Only `json` may hold control
/// characters.
struct Property {
    std::string name;
    std::string json; ///< The value as JSON text.
    std::string text; ///< The value on one line: a string itself, other values as JSON.
    std::vector<std::string> lines; ///< The value with each element of a list on its own line.
};

/// Reads the properties at the message's position, "a{sv}", in their order. A value of a type that
/// no property of the extension has becomes null. Throws `Failure`.
[[nodiscard]] std::vector<Property> readProperties(sd_bus_message* message);

/// Reads one property, whose value is the variant at the message's position, likewise.
[[nodiscard]] Property readProperty(std::string name, sd_bus_message* message);

/// All properties as one JSON object.
[[nodiscard]] std::string jsonOf(const std::vector<Property>& properties);

} // namespace finderctl

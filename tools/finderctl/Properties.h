#pragma once

#include <boost/json.hpp>
#include <string>
#include <systemd/sd-bus.h>

namespace finderctl {

/// Reads the properties that a message goes on with, "a{sv}", in their order. A value of a type
/// that no property of the extension has becomes null. Throws `Failure`.
[[nodiscard]] boost::json::object readProperties(sd_bus_message* message);

/// The value of a property for people to read, on one line.
[[nodiscard]] std::string textOfProperty(const boost::json::value& value);

} // namespace finderctl

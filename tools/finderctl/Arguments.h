#pragma once

#include "tools/finderctl/Extension.h"

#include <string>
#include <vector>

namespace finderctl {

/// Appends a list of strings, "as", to a call. Throws `Failure`.
void appendList(sd_bus_message* message, const std::vector<std::string>& list);

/// Reads a list of strings, "as", from an answer. Throws `Failure`.
[[nodiscard]] std::vector<std::string> readList(sd_bus_message* message);

} // namespace finderctl

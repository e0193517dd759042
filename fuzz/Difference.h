#pragma once

#include <string_view>

namespace findersync::fuzz {

/// Aborts, and so reports a finding, when a condition does not hold; `what` describes the failure.
void require(bool isAsItShouldBe, std::string_view what);

} // namespace findersync::fuzz

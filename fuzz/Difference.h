#pragma once

#include <string_view>

namespace findersync::fuzz {

/// Ends the process as a find when something is not as it has to be; `what` says what that is.
void require(bool isAsItShouldBe, std::string_view what);

} // namespace findersync::fuzz

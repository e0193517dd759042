#pragma once

#include <span>
#include <string_view>

namespace tests {

/// A test that is expected to fail with the frameworks that it is built against.
struct KnownDifference {
    std::string_view program; ///< the test program
    const char* test;
    const char* reason;
};

/// Those of every test program. Defined once for Apple's frameworks and once for GNUstep's.
[[nodiscard]] std::span<const KnownDifference> knownDifferences();

} // namespace tests

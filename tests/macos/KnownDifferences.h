#pragma once

#include <span>
#include <string_view>

namespace tests {

/// A test that is expected to fail with the frameworks that this is built against.
struct KnownDifference {
    std::string_view program; ///< that the test is part of
    const char* test;
    const char* reason;
};

/// All of them, for every program. Defined once for each kind of frameworks.
[[nodiscard]] std::span<const KnownDifference> knownDifferences();

} // namespace tests

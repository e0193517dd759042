// With Apple's frameworks, no test is expected to fail.

#include "tests/macos/KnownDifferences.h"

std::span<const tests::KnownDifference> tests::knownDifferences() {
    return {};
}

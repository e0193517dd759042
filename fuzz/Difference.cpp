#include "fuzz/Difference.h"

#include <cstdio>
#include <cstdlib>

namespace findersync::fuzz {

void require(bool isAsItShouldBe, std::string_view what) {
    if (isAsItShouldBe)
        return;
    (void)std::fprintf(stderr, "difference: %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
}

} // namespace findersync::fuzz

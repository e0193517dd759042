#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace findersync::bench {

/// What a companion application sends during the inbound bench: one burst, again and again.
///
/// A burst leaves the list of root folders as it found it: three known folders. The first one that
/// an extension receives puts them there.
struct Traffic {
    static constexpr std::size_t burstSize = 1024; ///< the size of the extension's reads
    static constexpr std::size_t linesPerBurst = 10;

    std::string_view name;
    std::string burst; ///< `burstSize` bytes: `linesPerBurst` whole lines
    std::string trace; ///< what the extension prints of a burst that arrives as one event
};

/// The traffic of that name ("ascii" or "non-ascii"), or none.
[[nodiscard]] std::optional<Traffic> trafficWithName(std::string_view name);

} // namespace findersync::bench

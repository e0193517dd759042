#pragma once

#include <atomic>
#include <cstdint>

namespace findersync::bench {

/// What a program's heap holds, as the counting allocator keeps it in a file that others can map.
struct LiveBytes {
    std::atomic<std::int64_t> bytes;  ///< as requested, without what the allocator adds
    std::atomic<std::int64_t> blocks; ///< allocations that have not been freed
};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

/// Names the file, which is there already and large enough.
inline constexpr const char* liveBytesVariable = "FINDER_SYNC_BENCH_LIVE_BYTES";

} // namespace findersync::bench

#pragma once

#include "process/Descriptor.h"

#include <chrono>
#include <string>
#include <vector>

// What the systems have under different names.

namespace finder_sync {

/// Waits for descriptors, and for the end of a delay, behind one descriptor.
class Poller {
public:
    /// Returns 0 or an errno, as the others do.
    [[nodiscard]] int open();

    /// Readable when a watched descriptor is, or when the delay is over.
    [[nodiscard]] int descriptor() const { return queue_.get(); }

    /// Watches a descriptor until it is closed: for bytes to read, and for its end.
    [[nodiscard]] int watch(int descriptor);

    /// Watches it no longer, though it stays open.
    void unwatch(int descriptor);

    /// Wakes up once after this time, instead of what was set before.
    void wakeAfter(std::chrono::microseconds delay);

    /// The watched descriptors that are ready; does not wait.
    [[nodiscard]] std::vector<int> ready();

private:
    process::Descriptor queue_;
    process::Descriptor timer_; ///< where it needs one of its own
};

/// Whether a block arrives in one piece: nothing is on its way, and the peer's receive window has
/// room for all of it. TCP would fill a smaller window with the beginning of the block.
[[nodiscard]] bool hasRoomForBlock(int socket);

/// Whether the peer of an accepted connection is a process of the same user.
[[nodiscard]] bool isOfSameUser(int socket);

// Non-blocking descriptors that are closed in programs that are started: from the beginning where
// the system can do that, since another thread may be starting one. None on failure, which errno
// names.

[[nodiscard]] process::Descriptor openSocket();
[[nodiscard]] process::Descriptor acceptFrom(int listener);
/// Only the end for reading is non-blocking.
[[nodiscard]] bool openPipe(process::Descriptor& output, process::Descriptor& input);

/// The same for one that was opened elsewhere.
void makePrivate(int descriptor);

} // namespace finder_sync

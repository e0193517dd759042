#pragma once

#include "platform/System.h"

#include <cstddef>
#include <cstdint>
#include <list>

namespace hosts::linux_host {

/// Bounds the memory of the replies that sd-bus queues while the bus daemon reads none of them: the
/// daemon stops reading once it holds about a gigabyte for a caller that does not read its replies.
/// sd-bus bounds how many messages it queues, but not how large they are.
class QueuedReplies {
public:
    /// Call this before each message is handled, with the length of sd-bus's write queue and
    /// whether the sender of the message expects a reply. Aborts once queued replies exceed the
    /// limit; the daemon reads again from the process that it starts next.
    void beginMessage(std::uint64_t queued, bool expectsReply) {
        if (reply_ > 0) {
            sizes_.push_back(reply_);
            total_ += reply_;
        }
        reply_ = 0;
        expectsReply_ = expectsReply;
        // The queue is first in, first out: it holds at most the latest replies.
        for (; sizes_.size() > queued; sizes_.pop_front())
            total_ -= sizes_.front();
        if (total_ + queued * overhead > limit)
            platform::fatalError("the session bus takes no more answers, since somebody does not "
                                 "read theirs");
    }

    /// The reply to the current message grows by so many bytes.
    void add(std::size_t size) {
        if (expectsReply_)
            reply_ += size;
    }

private:
    static constexpr std::size_t limit = std::size_t{64} * 1024 * 1024; ///< bytes
    /// Bytes that a queued message takes besides its texts; the introspection data is the longest.
    static constexpr std::size_t overhead = std::size_t{8} * 1024;

    // A list allocates once for each element, however many came and went before.
    std::list<std::size_t> sizes_; ///< bytes of text in the latest replies, at least in the queued
    std::size_t total_ = 0;        ///< of `sizes_`
    std::size_t reply_ = 0;        ///< bytes of text in the reply to the current message
    bool expectsReply_ = false;
};

} // namespace hosts::linux_host

#pragma once

#include "platform/System.h"

#include <cstddef>
#include <cstdint>
#include <list>

namespace findersync {

/// The answers that wait for the bus to take them, which sd-bus keeps without a limit. For a caller
/// that does not read its answers the bus takes about a gigabyte, and then nothing at all.
class UnsentAnswers {
public:
    /// A message is about to be handled while so many wait. Ends the process when they are too
    /// large: of the next one, the bus takes answers again.
    void beginAnswer(std::uint64_t waiting) {
        sizes_.push_back(0);
        add(overhead);
        for (; sizes_.size() > waiting + 1; sizes_.pop_front())
            total_ -= sizes_.front();
        if (total_ > limit)
            platform::fatalError("the session bus takes no more answers, since somebody does not "
                                 "read theirs");
    }

    /// The answer is longer by so many bytes, or may be.
    void add(std::size_t size) {
        if (sizes_.empty())
            return; // nobody has asked yet
        sizes_.back() += size;
        total_ += size;
    }

private:
    static constexpr std::size_t limit = std::size_t{128} * 1024 * 1024;
    static constexpr std::size_t overhead = 1024; ///< of a message

    // A list, since what it takes depends on nothing but its length.
    std::list<std::size_t> sizes_; ///< of the latest answers, at least of all that wait
    std::size_t total_ = 0;
};

} // namespace findersync

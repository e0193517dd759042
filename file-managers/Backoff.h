#pragma once

// When something that has failed is tried again: the same in every plug-in. Clocks are passed in,
// so that nobody has to wait to see what happens.

#include <algorithm>
#include <chrono>
#include <utility>

namespace file_managers {

using Clock = std::chrono::steady_clock;

/// The pause before the next try: a second, and twice as long each time, up to a minute.
class Backoff {
public:
    [[nodiscard]] std::chrono::milliseconds next() {
        return std::exchange(pause_, std::min(2 * pause_, longest));
    }
    void reset() { pause_ = first; }

private:
    static constexpr std::chrono::milliseconds first = std::chrono::seconds(1);
    static constexpr std::chrono::milliseconds longest = std::chrono::minutes(1);

    std::chrono::milliseconds pause_ = first;
};

/// When an extension that has ended may be started again. The first start is made at once.
class StartBackoff {
public:
    /// How long to wait before a start; not positive when it may be made.
    [[nodiscard]] Clock::duration remaining(Clock::time_point now) const { return next_ - now; }

    /// A start is made.
    void started(Clock::time_point now) { next_ = now + pause_.next(); }

    /// A process has the name.
    void appeared(Clock::time_point now) { appeared_ = now; }

    /// That process has ended. One that lived for long was no failure.
    void ended(Clock::time_point now) {
        if (now - appeared_ >= longLife)
            reset();
    }

    /// The user has asked for something: the next start may be made at once.
    void reset() { *this = {}; }

private:
    static constexpr std::chrono::minutes longLife{10};

    Backoff pause_;
    Clock::time_point next_;
    Clock::time_point appeared_;
};

} // namespace file_managers

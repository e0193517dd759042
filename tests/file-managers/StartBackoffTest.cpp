#include "file-managers/Backoff.h"

#include <functional>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using file_managers::Backoff;
using file_managers::Clock;
using file_managers::StartBackoff;

TEST(Backoff, DoublesUpToAMinuteUntilItIsReset) {
    Backoff backoff;
    for (const auto pause : {1s, 2s, 4s, 8s, 16s, 32s, 60s, 60s})
        EXPECT_EQ(backoff.next(), pause);
    backoff.reset();
    EXPECT_EQ(backoff.next(), 1s);
}

class StartBackoffTest : public testing::Test {
protected:
    /// A start that brings up a process which lives for so long.
    void start(Clock::duration life) {
        backoff.started(now);
        backoff.appeared(now);
        now += life;
        backoff.ended(now);
    }
    bool mayStart() { return backoff.remaining(now) <= 0s; }

    StartBackoff backoff;
    Clock::time_point now{24h};
};

TEST_F(StartBackoffTest, StartsAtOnceAndThenWithAPauseThatGrows) {
    EXPECT_TRUE(mayStart());
    for (const auto pause : {1s, 2s, 4s}) {
        start(100ms);
        EXPECT_EQ(backoff.remaining(now), pause - 100ms);
        now += pause;
        EXPECT_TRUE(mayStart());
    }
}

TEST_F(StartBackoffTest, ForgetsAfterTenMinutesOfLifeOrForTheUser) {
    const auto forget = [this] { backoff.reset(); };
    const auto liveTenMinutes = [this] { start(10min); };
    for (const std::function<void()>& reset : {std::function<void()>(forget), {liveTenMinutes}}) {
        for (int starts = 0; starts < 9; ++starts)
            start(10min - 1ms);
        start(1s);
        EXPECT_FALSE(mayStart());
        reset();
        EXPECT_TRUE(mayStart());
        start(1s);
        now += 1ms;
        EXPECT_TRUE(mayStart()) << "a second is enough again";
    }
}

} // namespace

#include "platform/linux/RunLoop.h"

#include "platform/Foundation.h"
#include "platform/System.h"
#include "platform/linux/BufferedOutput.h"
#include "tests/platform/StreamCapture.h"

#include <gtest/gtest.h>
#include <unistd.h>

using platform::linux_backend::runLoopOfThisThread;

namespace {

TEST(RunLoop, WhatIsPrintedInTheLastTurnIsWrittenOut) {
    const tests::StreamCapture output(STDOUT_FILENO);
    sd_event* const event = runLoopOfThisThread().event();
    const auto printAndEnd = [](sd_event_source* source, void*) {
        platform::print("last line");
        return sd_event_exit(sd_event_source_get_event(source), 0);
    };
    ASSERT_GE(sd_event_add_defer(event, nullptr, printAndEnd, nullptr), 0);
    while (runLoopOfThisThread().runOnce()) {
    }
    EXPECT_EQ(output.text(), "last line\n");
}

TEST(RunLoop, TraceAndLogKeepTheirOrderForWhoeverReadsBoth) {
    const tests::StreamCapture output(STDOUT_FILENO);
    const tests::StreamCapture error(STDERR_FILENO);
    ASSERT_EQ(::dup2(STDOUT_FILENO, STDERR_FILENO), STDERR_FILENO);
    platform::print("traced first");
    platform::NSLog("logged %@", "second");
    platform::print("traced last");
    platform::linux_backend::flushStandardStreams();
    const std::string text = output.text();
    EXPECT_LT(text.find("traced first\n"), text.find("logged second\n"));
    EXPECT_LT(text.find("logged second\n"), text.find("traced last\n"));
    EXPECT_NE(text.find("traced last\n"), std::string::npos);
}

} // namespace

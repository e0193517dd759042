// How long an extension that let a menu time out is left alone. It takes a while, so it runs once
// for each toolkit, with Thunar and with Dolphin.

#include "tests/file-managers/PluginTest.h"

namespace {

TEST_F(Plugin, LeavesAHungExtensionAloneForFiveSeconds) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    const auto begin = Clock::now();
    extension.signal(SIGSTOP);
    expectTimeout(manager.menu({root}));
    expectNothingAtOnce(manager.menu({root}));
    extension.signal(SIGCONT);
    EXPECT_TRUE(runUntil([&] { return manager.menu({root}).size() == 1; }));
    EXPECT_GE(Clock::now() - begin, milliseconds(5000));
    EXPECT_LT(Clock::now() - begin, milliseconds(6000));
}

TEST_F(Plugin, AsksAnotherExtensionAtOnce) {
    ExtensionProcess extension({"/sync"});
    ASSERT_TRUE(knowsExtension());
    extension.signal(SIGSTOP);
    const auto begin = Clock::now();
    expectTimeout(manager.menu({root}));
    extension.end();
    ExtensionProcess again({"/sync"});
    EXPECT_TRUE(runUntil([&] { return manager.menu({root}).size() == 1; }));
    EXPECT_LT(Clock::now() - begin, milliseconds(4000)) << "it has done nothing wrong";
}

} // namespace

// From the Finder's creation of the principal object to its release.

#import "tests/macos/PrincipalClassTest.h"
#import "tests/macos/SuiteDouble.h"

#include "Names.h"

#include <csignal>
#include <objc/runtime.h>
#include <unistd.h>

namespace {

using tests::principalClass;

class StartUp : public tests::PrincipalClassTest {};

TEST_F(StartUp, ReadsTheSettingsWatchesRegistersTheBadgeAndConnects) {
    store([NSDictionary dictionaryWithObjectsAndKeys:@"/Users/u", @"RootFolder",
                                                     [NSNumber numberWithInt:5], @"DisplayUrlLink",
                                                     [NSNumber numberWithInt:1], @"DisplayBackup",
                                                     @"Contact", @"ShareContactTitle", @"L\u00e4nk",
                                                     @"ShareViaUrlTitle", @"Back up",
                                                     @"BackupTitle", nil]);
    FinderSync* const extension = [start() autorelease];
    ASSERT_NE(extension, nil);
    EXPECT_TRUE([extension isKindOfClass:principalClass()]);

    EXPECT_TRUE([[extension myFolderURL] isEqual:[NSURL fileURLWithPath:@"/Users/u"]]);
    EXPECT_EQ([extension serverPort], peer.port());
    EXPECT_EQ([extension displayUrlLink], 5);
    EXPECT_EQ([extension displayBackup], 1);
    EXPECT_TRUE([[extension shareContactTitle] isEqual:@"Contact"]);
    EXPECT_TRUE([[extension shareViaUrlTitle] isEqual:@"L\u00e4nk"]);
    EXPECT_TRUE([[extension backupTitle] isEqual:@"Back up"]);
    EXPECT_TRUE([extension isSocketConnected]);
    EXPECT_EQ([[extension pathsOfRootFolders] count], 0U);

    EXPECT_TRUE(
        [[finder directoryURLs] isEqual:[NSSet setWithObject:[NSURL fileURLWithPath:@"/Users/u"]]]);
    ASSERT_EQ([[finder badges] count], 1U);
    NSArray* const badge = [[finder badges] objectAtIndex:0];
    EXPECT_TRUE([[badge objectAtIndex:0] isEqual:@"FolderIco"]);
    EXPECT_TRUE([[badge objectAtIndex:1] isEqual:@"Folder Icon"]);
    EXPECT_TRUE([[[badge objectAtIndex:2] name] isEqual:@"icon_Folder"]);

    const std::string bundle = [[[NSBundle mainBundle] bundlePath] UTF8String];
    EXPECT_EQ(logged(), std::vector{"FinderSync() launched from " + bundle});
    EXPECT_EQ(printed(), "connecting...\n");
    std::string trace;
    EXPECT_TRUE(runUntil([&] {
        trace += printed();
        return trace.find("Sending\n") != std::string::npos;
    })) << trace;
    EXPECT_EQ(trace, "Opened connection\nOpened connection\nSending\n");
}

TEST_F(StartUp, YieldsNoneWhenTheBaseClassYieldsNone) {
    using Initializer = id (*)(id, SEL);
    const Initializer yieldsNone = [](id object, SEL) -> id {
        [object release];
        return nil;
    };
    Class const base = [FIFinderSync class];
    const SEL selector = @selector(init);
    // The base class may have the initializer of its own base class.
    class_addMethod(base, selector, class_getMethodImplementation(base, selector), "@@:");
    Method const initializer = class_getInstanceMethod(base, selector);
    const IMP original = method_setImplementation(initializer, reinterpret_cast<IMP>(yieldsNone));
    EXPECT_EQ(start(), nil);
    method_setImplementation(initializer, original);
    EXPECT_EQ([finder directoryURLs], nil);
    EXPECT_EQ([[finder badges] count], 0U);
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(logged(), std::vector<std::string>());
}

TEST_F(StartUp, ASuiteThatCannotBeOpenedIsFatal) {
    tests::letSuitesOpen(false);
    EXPECT_EXIT((void)start(), testing::KilledBySignal(SIGABRT),
                "fatal error: the shared settings cannot be opened: \"" +
                    std::string(findersync::applicationGroup) +
                    "\" is no application group: it names the global domain or this very bundle\n");
}

TEST_F(StartUp, ATitleThatIsNoStringIsFatal) {
    store([NSDictionary dictionaryWithObject:[NSNumber numberWithInt:5] forKey:@"BackupTitle"]);
    EXPECT_EXIT((void)start(), testing::KilledBySignal(SIGABRT),
                "fatal error: the setting \"BackupTitle\" is not a string");
    store([NSDictionary dictionaryWithObject:[NSDate date] forKey:@"BackupTitle"]);
    EXPECT_EXIT((void)start(), testing::KilledBySignal(SIGABRT),
                "fatal error: the setting \"BackupTitle\" is not a string");
}

TEST_F(StartUp, ATraceThatNobodyReadsDoesNotEndTheProcess) {
    // The platform may have had the signal ignored already.
    const auto startWithoutAReader = [] {
        (void)std::signal(SIGPIPE, SIG_DFL);
        int pipe[2];
        if (::pipe(pipe) != 0 || ::close(pipe[0]) != 0 || ::dup2(pipe[1], STDOUT_FILENO) < 0)
            ::_exit(2);
        (void)start();
        ::_exit(std::signal(SIGPIPE, SIG_DFL) == SIG_IGN ? 0 : 1);
    };
    EXPECT_EXIT(startWithoutAReader(), testing::ExitedWithCode(0), "");
}

TEST_F(StartUp, FieldsHaveTheirInitialValuesBeforeTheBaseClassIsInitialized) {
    static NSString* address = nil;
    using Initializer = id (*)(id, SEL);
    const Initializer asks = [](id object, SEL) -> id {
        address = [[object valueForKey:@"serverAddress"] copy];
        return object;
    };
    Class const base = [FIFinderSync class];
    const SEL selector = @selector(init);
    class_addMethod(base, selector, class_getMethodImplementation(base, selector), "@@:");
    Method const initializer = class_getInstanceMethod(base, selector);
    const IMP original = method_setImplementation(initializer, reinterpret_cast<IMP>(asks));
    (void)[start() autorelease];
    method_setImplementation(initializer, original);
    EXPECT_TRUE([address isEqual:@"127.0.0.1"]);
    [address release];
}

TEST_F(StartUp, ACompanionThatGoesAwayWhileItIsWrittenToDoesNotEndTheProcess) {
    FinderSync* const extension = connectedWithSelection(@"/sync/a");
    peer.reset();
    for (int attempt = 0; attempt < 3; ++attempt)
        [extension createLinkClicked:nil];
    SUCCEED();
}

} // namespace

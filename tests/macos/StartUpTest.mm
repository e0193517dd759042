// From the Finder's creation of the principal object to its release.

#import "tests/macos/PrincipalClassTest.h"
#import "tests/macos/SuiteDouble.h"

#include "Names.h"

#include <csignal>
#include <objc/runtime.h>
#include <unistd.h>

namespace {

using StartUp = tests::PrincipalClassTest;

/// Replaces the base class's initializer for as long as it lives.
class BaseInitializer {
public:
    explicit BaseInitializer(id (*function)(id, SEL)) {
        Class const base = [FIFinderSync class];
        // The base class may only inherit one so far.
        class_addMethod(base, @selector(init), class_getMethodImplementation(base, @selector(init)),
                        "@@:");
        initializer_ = class_getInstanceMethod(base, @selector(init));
        original_ = method_setImplementation(
            initializer_, reinterpret_cast<IMP>(reinterpret_cast<void (*)()>(function)));
    }
    ~BaseInitializer() { method_setImplementation(initializer_, original_); }
    BaseInitializer(const BaseInitializer&) = delete;
    BaseInitializer& operator=(const BaseInitializer&) = delete;

private:
    Method initializer_ = nullptr;
    IMP original_ = nullptr;
};

TEST_F(StartUp, ReadsTheSettingsWatchesRegistersTheBadgeAndConnects) {
    store(@{
        @"RootFolder" : @"/Users/u",
        @"DisplayUrlLink" : @5,
        @"DisplayBackup" : @1,
        @"ShareContactTitle" : @"Contact",
        @"ShareViaUrlTitle" : @"L\u00e4nk",
        @"BackupTitle" : @"Back up"
    });
    FinderSync* const extension = [start() autorelease];
    ASSERT_TRUE([extension isKindOfClass:tests::principalClass()]);

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
    NSImage* const icon = [NSImage imageNamed:@"icon_Folder"];
    EXPECT_TRUE(([[finder badges] isEqual:@[ @[ @"FolderIco", @"Folder Icon", icon ] ]]));

    const std::string bundle = [[[NSBundle mainBundle] bundlePath] UTF8String];
    EXPECT_EQ(logged(), std::vector{"FinderSync() launched from " + bundle});
    EXPECT_EQ(printed(), "connecting...\n");
    EXPECT_EQ(printedUntil("Sending\n"), "Opened connection\nOpened connection\nSending\n");
}

TEST_F(StartUp, YieldsNoneWhenTheBaseClassYieldsNone) {
    const BaseInitializer yieldsNone([](id object, SEL) -> id {
        [object release];
        return nil;
    });
    EXPECT_EQ(start(), nil);
    EXPECT_EQ([finder directoryURLs], nil);
    EXPECT_EQ([[finder badges] count], 0U);
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(logged(), std::vector<std::string>());
}

TEST_F(StartUp, FieldsHaveTheirInitialValuesBeforeTheBaseClassIsInitialized) {
    static NSString* address = nil;
    const BaseInitializer reads([](id object, SEL) -> id {
        address = [[object valueForKey:@"serverAddress"] copy];
        return object;
    });
    (void)[start() autorelease];
    EXPECT_TRUE([address isEqual:@"127.0.0.1"]);
    [address release];
}

TEST_F(StartUp, ASuiteThatCannotBeOpenedIsFatal) {
    tests::letSuitesOpen(false);
    EXPECT_EXIT((void)start(), testing::KilledBySignal(SIGABRT),
                "fatal error: the shared settings cannot be opened: \"" +
                    std::string(findersync::applicationGroup) +
                    "\" is no application group: it names the global domain or this very bundle\n");
}

TEST_F(StartUp, ATraceThatNobodyReadsDoesNotEndTheProcess) {
    // The platform may already ignore the signal.
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

} // namespace

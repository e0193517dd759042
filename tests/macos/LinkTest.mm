// The link over the run loop, to a real peer on the loopback.

#import "tests/macos/PrincipalClassTest.h"

#include <objc/runtime.h>

namespace {

class Link : public tests::PrincipalClassTest {};

TEST_F(Link, FromStartUpToTheEndOfTheStream) {
    FinderSync* const extension = connected();
    const std::string message = "{\"type\":\"add_folder\",\"path\":\"/sync\"}\n";
    peer.send(message);
    EXPECT_EQ(printedUntil("add_folder\n"),
              "receiving\nserver said: " + message + "\ntype - add_folder\n");
    EXPECT_TRUE([[extension pathsOfRootFolders] isEqual:@[ @"/sync" ]]);
    peer.send(
        "{\"type\":\"set_locale\",\"shareContactTitle\":\"c\",\"shareViaUrlTitle\":\"\u00fc\","
        "\"backupTitle\":\"b\"}\n{\"type\":\"set_menu_usage\",\"displayBackup\":\"1\"}\n");
    (void)printedUntil("type - set_menu_usage\n");
    EXPECT_TRUE([[extension shareViaUrlTitle] isEqual:@"\u00fc"]);
    EXPECT_EQ([extension displayBackup], 1);

    peer.finishSending();
    EXPECT_TRUE(printedUntil("ignore\n").ends_with("ignore\n"));
    EXPECT_FALSE([extension isSocketConnected]);
}

TEST_F(Link, ConnectMakesAFreshPair) {
    FinderSync* const extension = connected();
    tests::LoopbackPeer second;
    [extension setServerPort:second.port()];
    [extension connect];
    EXPECT_EQ(printedUntil("Sending\n"),
              "connecting...\nOpened connection\nOpened connection\nSending\n");
    second.send("{\"type\":\"add_folder\",\"path\":\"/b\"}\n");
    EXPECT_TRUE(printedUntil("add_folder\n").ends_with("add_folder\n"));
}

NSUInteger eventsSeen = 0;

void countEvent(id object, SEL selector, NSStream* stream, NSStreamEvent event) {
    ++eventsSeen;
    using Handler = void (*)(id, SEL, NSStream*, NSStreamEvent);
    const auto inherited = reinterpret_cast<Handler>(reinterpret_cast<void (*)()>(
        class_getMethodImplementation(tests::principalClass(), selector)));
    inherited(object, selector, stream, event);
}

TEST_F(Link, ThePrincipalObjectItselfIsTheDelegateOfBothStreams) {
    Class const watching = objc_allocateClassPair(tests::principalClass(), "WatchingFinderSync", 0);
    const SEL handler = @selector(stream:handleEvent:);
    Method const inherited = class_getInstanceMethod(tests::principalClass(), handler);
    class_addMethod(watching, handler,
                    reinterpret_cast<IMP>(reinterpret_cast<void (*)()>(&countEvent)),
                    method_getTypeEncoding(inherited));
    objc_registerClassPair(watching);
    FinderSync* const extension = [[[watching alloc] init] autorelease];
    EXPECT_EQ(printedUntil("Sending\n"),
              "connecting...\nOpened connection\nOpened connection\nSending\n");
    EXPECT_EQ(eventsSeen, 3U);
    EXPECT_TRUE([extension isSocketConnected]);
}

} // namespace

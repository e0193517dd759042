// The link over the run loop: a real companion on the loopback.

#import "tests/macos/PrincipalClassTest.h"

#include <objc/runtime.h>

namespace {

class Link : public tests::PrincipalClassTest {
protected:
    /// Runs until the trace holds a text, and gives the trace since the last time.
    std::string traceUntil(const std::string& text) {
        std::string trace;
        (void)runUntil([&] {
            trace += printed();
            return trace.find(text) != std::string::npos;
        });
        return trace;
    }
};

TEST_F(Link, FromStartUpToTheEndOfTheStream) {
    FinderSync* const extension = connected();
    NSURL* const folder = [NSURL fileURLWithPath:@"/sync"];
    [finder setSelectedItemURLs:[NSArray arrayWithObject:[NSURL fileURLWithPath:@"/sync/a"]]];
    EXPECT_EQ([extension menuForMenuKind:FIMenuKindContextualMenuForItems], nil);
    (void)printed();

    const std::string message = "{\"type\":\"add_folder\",\"path\":\"/sync\"}\n";
    peer.send(message);
    EXPECT_EQ(traceUntil("add_folder\n"),
              "receiving\nserver said: " + message + "\ntype - add_folder\n");
    EXPECT_TRUE([[extension pathsOfRootFolders] isEqual:[NSArray arrayWithObject:@"/sync"]]);
    peer.send(message);
    EXPECT_EQ(traceUntil("index"), "receiving\nserver said: " + message +
                                       "\ntype - add_folder\nnew path is at index 0\n");

    peer.send(
        "{\"type\":\"set_locale\",\"shareContactTitle\":\"c\",\"shareViaUrlTitle\":\"\u00fc\","
        "\"backupTitle\":\"b\"}\n{\"type\":\"set_menu_usage\",\"displayBackup\":\"1\"}\n");
    (void)traceUntil("type - set_menu_usage\n");
    EXPECT_TRUE([[extension shareContactTitle] isEqual:@"c"]);
    EXPECT_TRUE([[extension shareViaUrlTitle] isEqual:@"\u00fc"]);
    EXPECT_TRUE([[extension backupTitle] isEqual:@"b"]);
    EXPECT_EQ([extension displayBackup], 1);

    [extension requestBadgeIdentifierForURL:folder];
    EXPECT_EQ([[finder assignments] count], 1U);
    NSMenu* const menu = [extension menuForMenuKind:FIMenuKindContextualMenuForItems];
    EXPECT_EQ([[menu itemArray] count], 2U);
    NSMenuItem* const entry = [[menu itemArray] objectAtIndex:0];
    [extension performSelector:[entry action] withObject:entry];
    EXPECT_TRUE(runUntil([&] { return peer.received().ends_with('}'); }));
    EXPECT_NE(peer.received().find("clicked_create_url_link"), std::string::npos);

    peer.send("{\"type\":\"del_folder\",\"path\":\"/other\"}\n");
    (void)traceUntil("type - del_folder\n");
    peer.finishSending();
    EXPECT_NE(traceUntil("ignore\n").find("ignore\n"), std::string::npos);
    EXPECT_FALSE([extension isSocketConnected]);
    EXPECT_EQ([extension menuForMenuKind:FIMenuKindContextualMenuForItems], nil);
    [extension requestBadgeIdentifierForURL:folder];
    EXPECT_EQ([[finder assignments] count], 2U) << "badges outlive the link";
}

TEST_F(Link, WithoutACompanionSaysSoOncePerStream) {
    store([NSDictionary dictionaryWithObject:[NSNumber numberWithInt:tests::LoopbackPeer().port()]
                                      forKey:@"ServerPort"]);
    FinderSync* const extension = [start() autorelease];
    EXPECT_EQ(traceUntil("error\nStream open error\n"),
              "connecting...\nStream open error\nStream open error\n");
    EXPECT_TRUE([extension isSocketConnected]);
}

TEST_F(Link, APortThatDoesNotExistIsNotCutToOneThatDoes) {
    store([NSDictionary dictionaryWithObject:[NSNumber numberWithInt:peer.port() + 65536]
                                      forKey:@"ServerPort"]);
    FinderSync* const extension = [start() autorelease];
    EXPECT_EQ([extension serverPort], peer.port() + 65536U);
    EXPECT_EQ(traceUntil("error\nStream open error\n"),
              "connecting...\nStream open error\nStream open error\n");
}

TEST_F(Link, EventsOfOtherStreamsAreTracedToo) {
    FinderSync* const extension = connected();
    NSStream* const other = [NSInputStream inputStreamWithData:[NSData data]];
    const auto traceOf = [&](NSUInteger event) {
        [extension stream:other handleEvent:static_cast<NSStreamEvent>(event)];
        return printed();
    };
    EXPECT_EQ(traceOf(0), "default\n");
    EXPECT_EQ(traceOf(1), "Opened connection\n");
    EXPECT_EQ(traceOf(2), "receiving\n");
    EXPECT_EQ(traceOf(3), "default\n");
    EXPECT_EQ(traceOf(4), "Sending\n");
    EXPECT_EQ(traceOf(8), "Stream open error\n");
    EXPECT_EQ(traceOf(32), "default\n");
    EXPECT_EQ(traceOf(33), "default\n");
    EXPECT_TRUE([extension isSocketConnected]);
    EXPECT_EQ(traceOf(16), "ignore\n");
    EXPECT_FALSE([extension isSocketConnected]);
}

TEST_F(Link, ConnectMakesAFreshPair) {
    FinderSync* const extension = connected();
    peer.send("{\"type\":\"add_folder\",\"path\":\"/a\"}\n");
    (void)traceUntil("add_folder\n");
    tests::LoopbackPeer second;
    [extension setServerPort:second.port()];
    [extension connect];
    EXPECT_EQ(traceUntil("Sending\n"),
              "connecting...\nOpened connection\nOpened connection\nSending\n");
    second.send("{\"type\":\"add_folder\",\"path\":\"/b\"}\n");
    (void)traceUntil("add_folder\n");
    EXPECT_EQ([[extension pathsOfRootFolders] count], 2U);
}

NSUInteger eventsSeen = 0;

void countEvent(id object, SEL selector, NSStream* stream, NSStreamEvent event) {
    ++eventsSeen;
    using Handler = void (*)(id, SEL, NSStream*, NSStreamEvent);
    const auto inherited =
        reinterpret_cast<Handler>(class_getMethodImplementation(tests::principalClass(), selector));
    inherited(object, selector, stream, event);
}

TEST_F(Link, ThePrincipalObjectItselfIsTheDelegateOfBothStreams) {
    Class const watching = objc_allocateClassPair(tests::principalClass(), "WatchingFinderSync", 0);
    const SEL handler = @selector(stream:handleEvent:);
    Method const inherited = class_getInstanceMethod(tests::principalClass(), handler);
    class_addMethod(watching, handler, reinterpret_cast<IMP>(&countEvent),
                    method_getTypeEncoding(inherited));
    objc_registerClassPair(watching);
    FinderSync* const extension = [[[watching alloc] init] autorelease];
    EXPECT_EQ(traceUntil("Sending\n"),
              "connecting...\nOpened connection\nOpened connection\nSending\n");
    EXPECT_EQ(eventsSeen, 3U);
    EXPECT_TRUE([extension isSocketConnected]);
}

} // namespace

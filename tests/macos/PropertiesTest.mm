// The key-value properties, by key. Key-value coding calls the accessors.

#import "tests/macos/PrincipalClassTest.h"

#include <csignal>
#include <limits>

namespace {

class Properties : public tests::PrincipalClassTest {
protected:
    FinderSync* extension = [start() autorelease];

    id read(NSString* key) { return [extension valueForKey:key]; }
    void write(NSString* key, id value) { [extension setValue:value forKey:key]; }
    void expect(NSString* key, id value) {
        EXPECT_TRUE([read(key) isEqual:value])
            << [key UTF8String] << " is " << [[read(key) description] UTF8String];
    }
};

TEST_F(Properties, EachIsReadAndWrittenByItself) {
    NSArray* const keys = @[
        @"myFolderURL", @"pathsOfRootFolders", @"serverPort", @"isSocketConnected",
        @"displayUrlLink", @"displayBackup", @"shareContactTitle", @"shareViaUrlTitle",
        @"backupTitle"
    ];
    NSMutableArray* const values = [NSMutableArray array];
    [values addObjectsFromArray:@[
        [NSURL fileURLWithPath:@"/"], @[], @(peer.port()), @(YES), @1, @0, @"", @"", @""
    ]];
    NSArray* const written = @[
        [NSURL fileURLWithPath:@"/Users/u"], @[ @"/b", @"/\u00e9", @"/b", @"/a" ], @4294967295U,
        @(NO), @(-7), @(std::numeric_limits<long long>::min()), @"Contact", @"L\u00e4nk \U0001f517",
        @"Back up"
    ];
    for (NSUInteger changed = 0; changed < [keys count]; ++changed) {
        for (NSUInteger other = 0; other < [keys count]; ++other)
            expect([keys objectAtIndex:other], [values objectAtIndex:other]);
        write([keys objectAtIndex:changed], [written objectAtIndex:changed]);
        [values replaceObjectAtIndex:changed withObject:[written objectAtIndex:changed]];
    }
    for (NSUInteger key = 0; key < [keys count]; ++key)
        expect([keys objectAtIndex:key], [written objectAtIndex:key]);
}

TEST_F(Properties, ListsAndTextsAreCopied) {
    NSMutableArray* const paths = [NSMutableArray arrayWithObject:@"/a"];
    write(@"pathsOfRootFolders", paths);
    [paths removeAllObjects];
    expect(@"pathsOfRootFolders", @[ @"/a" ]);
    NSMutableString* const title = [NSMutableString stringWithString:@"Link"];
    write(@"backupTitle", title);
    [title appendString:@"!"];
    expect(@"backupTitle", @"Link");
}

TEST_F(Properties, NilIsTheEmptyTextAndTheEmptyList) {
    write(@"pathsOfRootFolders", @[ @"/a" ]);
    write(@"pathsOfRootFolders", nil);
    expect(@"pathsOfRootFolders", @[]);
    for (NSString* key in @[ @"shareContactTitle", @"shareViaUrlTitle", @"backupTitle" ]) {
        write(key, @"text");
        write(key, nil);
        expect(key, @"");
    }
}

TEST_F(Properties, ValuesThatTheObjectCannotHoldAreFatal) {
    EXPECT_EXIT([extension setMyFolderURL:nil], testing::KilledBySignal(SIGABRT),
                "fatal error: myFolderURL is given no URL");
    NSArray* const paths = @[ @"/a", @1 ];
    EXPECT_EXIT([extension setPathsOfRootFolders:paths], testing::KilledBySignal(SIGABRT),
                "fatal error: pathsOfRootFolders is given something that is not a string");
}

TEST_F(Properties, ServerAddressCanOnlyBeRead) {
    expect(@"serverAddress", @"127.0.0.1");
    NSString* const address =
        reinterpret_cast<NSString*>(const_cast<__CFString*>([extension serverAddress]));
    EXPECT_TRUE([address isEqual:@"127.0.0.1"]);
    EXPECT_ANY_THROW(write(@"serverAddress", @"10.0.0.1"));
    expect(@"serverAddress", @"127.0.0.1");
}

TEST_F(Properties, NoOtherKeyIsPublished) {
    for (NSString* key in @[ @"inputStream", @"outputStream", @"path" ])
        EXPECT_ANY_THROW((void)read(key)) << [key UTF8String];
}

} // namespace

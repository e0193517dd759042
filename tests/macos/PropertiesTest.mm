// Every key-value property, by its accessors and by its key.

#import "tests/macos/PrincipalClassTest.h"

#include <csignal>
#include <cstdint>
#include <limits>

namespace {

class Properties : public tests::PrincipalClassTest {
protected:
    FinderSync* extension = [start() autorelease];

    id read(NSString* key) { return [extension valueForKey:key]; }
    void write(NSString* key, id value) { [extension setValue:value forKey:key]; }

    void expectText(NSString* key) {
        EXPECT_TRUE([read(key) isEqual:@""]) << [key UTF8String];
        NSMutableString* const title = [NSMutableString stringWithString:@"L\u00e4nk \U0001f517"];
        write(key, title);
        EXPECT_TRUE([read(key) isEqual:title]) << [key UTF8String];
        [title appendString:@"!"];
        EXPECT_TRUE([read(key) isEqual:@"L\u00e4nk \U0001f517"]) << "the text is copied";
        write(key, nil);
        EXPECT_TRUE([read(key) isEqual:@""]) << "nil is the empty text";
    }

    void expectInteger(NSString* key, std::int64_t initial) {
        EXPECT_EQ([read(key) longLongValue], initial);
        constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
        constexpr auto largest = std::numeric_limits<std::int64_t>::max();
        for (const std::int64_t value : {std::int64_t{-1}, std::int64_t{2}, smallest, largest}) {
            write(key, [NSNumber numberWithLongLong:value]);
            EXPECT_EQ([read(key) longLongValue], value) << [key UTF8String];
        }
    }
};

TEST_F(Properties, MyFolderURL) {
    EXPECT_TRUE([read(@"myFolderURL") isEqual:[NSURL fileURLWithPath:@"/"]]);
    NSURL* const url = [NSURL fileURLWithPath:@"/Users/u"];
    write(@"myFolderURL", url);
    EXPECT_EQ(read(@"myFolderURL"), url);
    [extension setMyFolderURL:[NSURL fileURLWithPath:@"/b"]];
    EXPECT_TRUE([[[extension myFolderURL] path] isEqual:@"/b"]);
}

TEST_F(Properties, MyFolderURLIsNeverAbsent) {
    EXPECT_EXIT([extension setMyFolderURL:nil], testing::KilledBySignal(SIGABRT),
                "fatal error: myFolderURL is given no URL");
}

TEST_F(Properties, PathsOfRootFolders) {
    EXPECT_TRUE([read(@"pathsOfRootFolders") isEqual:[NSArray array]]);
    NSMutableArray* const paths =
        [NSMutableArray arrayWithObjects:@"/b", @"/\u00e9", @"/b", @"/a", nil];
    NSArray* const expected = [[paths copy] autorelease];
    write(@"pathsOfRootFolders", paths);
    [paths removeAllObjects];
    EXPECT_TRUE([read(@"pathsOfRootFolders") isEqual:expected]);
    EXPECT_TRUE([[extension pathsOfRootFolders] isEqual:expected]);
    write(@"pathsOfRootFolders", nil);
    EXPECT_TRUE([read(@"pathsOfRootFolders") isEqual:[NSArray array]]);
}

TEST_F(Properties, PathsOfRootFoldersAreStrings) {
    NSArray* const paths = [NSArray arrayWithObjects:@"/a", [NSNumber numberWithInt:1], nil];
    EXPECT_EXIT([extension setPathsOfRootFolders:paths], testing::KilledBySignal(SIGABRT),
                "fatal error: pathsOfRootFolders is given something that is not a string");
}

TEST_F(Properties, ServerAddressCanOnlyBeRead) {
    EXPECT_TRUE([read(@"serverAddress") isEqual:@"127.0.0.1"]);
    NSString* const address =
        reinterpret_cast<NSString*>(const_cast<__CFString*>([extension serverAddress]));
    EXPECT_TRUE([address isEqual:@"127.0.0.1"]);
    bool isRefused = false;
    try {
        write(@"serverAddress", @"10.0.0.1");
    } catch (...) {
        isRefused = true;
    }
    EXPECT_TRUE(isRefused);
    EXPECT_TRUE([read(@"serverAddress") isEqual:@"127.0.0.1"]);
}

TEST_F(Properties, NoOtherKeyIsPublished) {
    for (NSString *key in
         [NSArray arrayWithObjects:@"inputStream", @"outputStream", @"path", nil]) {
        bool isRefused = false;
        try {
            (void)read(key);
        } catch (...) {
            isRefused = true;
        }
        EXPECT_TRUE(isRefused) << [key UTF8String];
    }
}

TEST_F(Properties, ServerPort) {
    EXPECT_EQ([read(@"serverPort") unsignedIntValue], peer.port());
    for (const std::uint32_t port : {0U, 70000U, 4294967295U}) {
        write(@"serverPort", [NSNumber numberWithUnsignedInt:port]);
        EXPECT_EQ([read(@"serverPort") unsignedIntValue], port);
        EXPECT_EQ([extension serverPort], port);
    }
    [extension setServerPort:61842];
    EXPECT_EQ([read(@"serverPort") unsignedIntValue], 61842U);
}

TEST_F(Properties, IsSocketConnected) {
    EXPECT_TRUE([read(@"isSocketConnected") boolValue]);
    write(@"isSocketConnected", [NSNumber numberWithBool:NO]);
    EXPECT_FALSE([read(@"isSocketConnected") boolValue]);
    [extension setIsSocketConnected:YES];
    EXPECT_EQ([extension isSocketConnected], YES);
}

TEST_F(Properties, DisplayUrlLink) {
    expectInteger(@"displayUrlLink", 1);
    [extension setDisplayUrlLink:-7];
    EXPECT_EQ([extension displayUrlLink], -7);
    EXPECT_EQ([extension displayBackup], 0);
}

TEST_F(Properties, DisplayBackup) {
    expectInteger(@"displayBackup", 0);
    [extension setDisplayBackup:-7];
    EXPECT_EQ([extension displayBackup], -7);
    EXPECT_EQ([extension displayUrlLink], 1);
}

TEST_F(Properties, ShareContactTitle) {
    expectText(@"shareContactTitle");
    [extension setShareContactTitle:@"one"];
    EXPECT_TRUE([[extension shareContactTitle] isEqual:@"one"]);
}

TEST_F(Properties, ShareViaUrlTitle) {
    expectText(@"shareViaUrlTitle");
    [extension setShareViaUrlTitle:@"two"];
    EXPECT_TRUE([[extension shareViaUrlTitle] isEqual:@"two"]);
}

TEST_F(Properties, BackupTitle) {
    expectText(@"backupTitle");
    [extension setBackupTitle:@"three"];
    EXPECT_TRUE([[extension backupTitle] isEqual:@"three"]);
}

TEST_F(Properties, AreKeptApart) {
    [extension setShareContactTitle:@"one"];
    [extension setShareViaUrlTitle:@"two"];
    [extension setBackupTitle:@"three"];
    EXPECT_TRUE([[extension shareContactTitle] isEqual:@"one"]);
    EXPECT_TRUE([[extension shareViaUrlTitle] isEqual:@"two"]);
    EXPECT_TRUE([[extension backupTitle] isEqual:@"three"]);
}

} // namespace

#include "platform/text/Paths.h"

#include <gtest/gtest.h>

using platform::text::isInFolder;
using platform::text::resolvedPath;

namespace {

TEST(Paths, AFolderHoldsItselfAndWhatLiesBelow) {
    EXPECT_TRUE(isInFolder("/a/b", "/a/b"));
    EXPECT_TRUE(isInFolder("/a/b/c", "/a/b"));
    EXPECT_TRUE(isInFolder("/a", "/"));
    EXPECT_TRUE(isInFolder("/", "/"));
    EXPECT_FALSE(isInFolder("/a", "/a/b"));
    EXPECT_FALSE(isInFolder("/a/bc", "/a/b"));
    EXPECT_FALSE(isInFolder("/x/a/b", "/a/b"));
    EXPECT_FALSE(isInFolder("/", "/a"));
}

TEST(Paths, AFolderMayBeSpelledInOtherWays) {
    EXPECT_TRUE(isInFolder("/tmp/y/z", "/tmp/x/../y"));
    EXPECT_TRUE(isInFolder("/tmp/y/z", "//tmp/./y/"));
    EXPECT_TRUE(isInFolder("/tmp/y/z", "/../tmp/y"));
    EXPECT_FALSE(isInFolder("/tmp/y/../z", "/tmp/y"));
    EXPECT_TRUE(isInFolder("/cafe\u0301/x", "/caf\u00e9"));
    EXPECT_FALSE(isInFolder("/cafe\u0301/x", "/cafe"));
}

TEST(Paths, ResolvingAPathGivesItOneSpelling) {
    for (const char* path : {"/home/u", "/home/u//", "//home/./u/.", "/../home/x/../u"})
        EXPECT_EQ(resolvedPath(path), "/home/u") << path;
    for (const char* path : {"/", "//", "/a/..", "/.."})
        EXPECT_EQ(resolvedPath(path), "/") << path;
    EXPECT_EQ(resolvedPath("/cafe\u0301"), "/cafe\u0301") << "names keep their form";
}

} // namespace

// The listing on real files.

#include "extension/FinderSync.h"
#include "tests/platform/ScratchFolder.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

class ExtendedAttributesOnLinux : public testing::Test {
protected:
    void SetUp() override {
        std::ofstream(item()) << "content";
        if (::setxattr(item().c_str(), "user.probe", "", 0, 0) != 0)
            GTEST_SKIP() << "the file system of the temporary folder has no extended attributes";
        ASSERT_EQ(::removexattr(item().c_str(), "user.probe"), 0);
    }

    [[nodiscard]] std::string path(const std::string& name) const {
        return (folder.path() / name).string();
    }
    [[nodiscard]] std::string item() const { return path("item"); }

    static void set(const std::string& path, const std::string& name) {
        ASSERT_EQ(::setxattr(path.c_str(), name.c_str(), "value", 5, 0), 0) << name;
    }

    /// The names at a path, in alphabetical order: file systems have orders of their own.
    Strings namesAt(const std::string& path) {
        auto result = extension.attributesNamesAtPath(path);
        EXPECT_EQ(result.error, std::nullopt);
        Strings names = result.names.value_or(Strings());
        std::ranges::sort(names);
        return names;
    }

    std::string errorAt(const std::string& path) {
        const auto result = extension.attributesNamesAtPath(path);
        EXPECT_EQ(result.names, std::nullopt);
        return result.error.value_or("no error");
    }

    tests::ScratchFolder folder;
    findersync::FinderSync extension;
};

TEST_F(ExtendedAttributesOnLinux, ALinkIsFollowed) {
    set(item(), "user.target");
    ASSERT_EQ(::symlink("item", path("link").c_str()), 0);
    EXPECT_EQ(namesAt(path("link")), Strings{"user.target"});
    ASSERT_EQ(::symlink("nothing", path("dangling").c_str()), 0);
    EXPECT_EQ(errorAt(path("dangling")), "No such file or directory");
}

TEST_F(ExtendedAttributesOnLinux, AMissingItemGivesThePlatformsWords) {
    EXPECT_EQ(errorAt(path("missing")), "No such file or directory");
    EXPECT_EQ(errorAt(""), "No such file or directory");
    EXPECT_EQ(errorAt(item() + "/below"), "Not a directory");
    EXPECT_EQ(errorAt("/" + std::string(5000, 'a')), "File name too long");
}

TEST_F(ExtendedAttributesOnLinux, ManyNamesAreListedOfAFileAndOfAFolder) {
    for (const std::string& path : {item(), folder.path().string()}) {
        Strings expected;
        for (int number = 100; number < 200; ++number) {
            expected.push_back("user.caf\u00e9 " + std::to_string(number));
            set(path, expected.back());
        }
        EXPECT_EQ(namesAt(path), expected);
    }
}

TEST_F(ExtendedAttributesOnLinux, NamesThatAreNotUTF8) {
    set(item(), "user.\xff");
    EXPECT_EQ(errorAt(item()), "Unknown error");
}

TEST_F(ExtendedAttributesOnLinux, AnEmbeddedNULEndsThePath) {
    set(item(), "user.a");
    EXPECT_EQ(namesAt(item() + std::string("\0/elsewhere", 11)), Strings{"user.a"});
}

#if defined(__has_feature)
constexpr bool hasOwnAllocator = __has_feature(address_sanitizer);
#else
constexpr bool hasOwnAllocator = false;
#endif

TEST_F(ExtendedAttributesOnLinux, EachCallHoldsOnToItsBufferAndToNothingElse) {
    if (hasOwnAllocator)
        GTEST_SKIP() << "the sanitizer's allocator keeps no such statistics";
    set(item(), "user.some-attribute-name");
    constexpr std::size_t rounds = 1000;
    const auto list = [this] {
        for (std::size_t round = 0; round < rounds; ++round)
            (void)extension.attributesNamesAtPath(item());
    };
    void* const sample = std::malloc(sizeof "user.some-attribute-name");
    const std::size_t block = ::malloc_usable_size(sample) + sizeof(std::size_t);
    list(); // the C library's caches of small blocks fill up
    const std::size_t before = ::mallinfo2().uordblks;
    list();
    EXPECT_EQ(::mallinfo2().uordblks - before, rounds * block);
    std::free(sample);
}

} // namespace

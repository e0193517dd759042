#include "finder_sync_companion/Companion.h"

#include <atomic>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

namespace {

std::atomic<std::size_t> allocations{0};

} // namespace

// Not inlined, or gcc would see memory of one function freed by another.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

// The sanitizer's own, which does not call the other, would not match the delete of below.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using finder_sync::Companion;
using finder_sync::Connection;
using finder_sync::Reason;
using finder_sync::Refusal;

std::size_t allocationsOf(const std::function<void()>& action) {
    const std::size_t before = allocations;
    action();
    return allocations - before;
}

TEST(Companion, RefusalIsASentenceThatNamesThePath) {
    EXPECT_EQ((Refusal{"/\xff", Reason::NotUTF8}).message(), "/\\xff is not UTF-8");
    EXPECT_EQ((Refusal{"é", Reason::NotAbsolute}).message(), "é is not an absolute path");
}

TEST(Companion, SymbolicLinksAreFollowedInItemsAndFolders) {
    Companion companion;
    companion.setFolders({"/link"});
    Connection connection(companion, [](const std::string& path) -> std::string {
        if (path == "/link/unknown")
            return "";
        return path == "/link/out" ? "/etc" : "/disk" + path.substr(5);
    });
    const auto reports = connection.receive(
        R"({"type":"clicked_backup","items":["/link/a","/link/out","/link/unknown","/disk/a"]})");
    EXPECT_EQ(reports.at(0).paths, std::vector<std::string>{"/link/a"});
    EXPECT_EQ(connection.droppedPaths(), 3U);
}

TEST(Companion, ReportsAreAllocatedForNothingButTheirPaths) {
    constexpr std::size_t count = 1000;
    const std::string bytes =
        R"({"items":["/a folder/a file with a long name"],"type":"clicked_backup"})";
    Companion companion;
    companion.setFolders({"/a folder"});
    Connection connection(companion);
    std::string all;
    for (std::size_t index = 0; index < count; ++index)
        all += bytes;
    (void)connection.receive(all); // has the buffer grow
    // Each has a path and a list of paths; the list of all reports grows a few times.
    EXPECT_LE(allocationsOf([&] { EXPECT_EQ(connection.receive(all).size(), count); }),
              2 * count + 20);
    // The path, the list of paths, and the list of reports.
    EXPECT_EQ(allocationsOf([&] {
                  for (std::size_t index = 0; index < count; ++index)
                      (void)connection.receive(bytes);
              }),
              3 * count);
}

TEST(Companion, TakesItsOwnFoldersAgain) {
    Companion companion;
    companion.setFolders({"/a folder with a long name", "/b"});
    companion.setFolders(companion.folders());
    EXPECT_EQ(companion.folders(), (std::vector<std::string>{"/a folder with a long name", "/b"}));
}

TEST(Companion, ChangeIsComparedOnce) {
    std::vector<std::string> paths;
    for (int index = 0; index < 30000; ++index)
        paths.push_back("/a folder with a long name" + std::to_string(index));
    Companion companion;
    companion.setFolders(paths);
    Connection connection(companion);
    EXPECT_GT(allocationsOf([&] { (void)connection.nextBlock(); }), paths.size());
    EXPECT_LT(allocationsOf([&] { (void)connection.nextBlock(); }), 300U);
}

} // namespace

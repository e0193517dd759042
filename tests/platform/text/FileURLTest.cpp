#include "platform/text/FileURL.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>

using platform::text::fileURLFromPath;
using platform::text::pathFromFileURL;

namespace {

std::optional<std::string> pathOf(std::string_view url) {
    std::string failure;
    auto path = pathFromFileURL(url, failure);
    EXPECT_EQ(path.has_value(), failure.empty()) << url;
    return path;
}

std::string failureOf(std::string_view url) {
    std::string failure;
    EXPECT_EQ(pathFromFileURL(url, failure), std::nullopt) << url;
    return failure;
}

TEST(FileURL, WhatMayStandInAPathStandsForItself) {
    const std::string path = "/AZaz09-._~!$&'()*+,;=:@/";
    EXPECT_EQ(fileURLFromPath(path), "file://" + path);
}

TEST(FileURL, EverythingElseIsEncodedByteByByte) {
    EXPECT_EQ(fileURLFromPath("/a b"), "file:///a%20b");
    EXPECT_EQ(fileURLFromPath("/%?#[]\""), "file:///%25%3F%23%5B%5D%22");
    EXPECT_EQ(fileURLFromPath("/\u00e9\n\x7f"), "file:///%C3%A9%0A%7F");
    EXPECT_EQ(fileURLFromPath(std::string_view("/\0", 2)), "file:///%00");
}

TEST(FileURL, EveryByteButNULMakesTheWayThereAndBack) {
    std::string path = "/";
    for (int byte = 1; byte < 256; ++byte)
        path += static_cast<char>(byte);
    EXPECT_EQ(pathOf(fileURLFromPath(path)), path);
}

TEST(FileURL, LocalURLsGiveTheirPathWithoutTheSlashOfADirectoryAndWithUnresolvedDots) {
    const std::pair<const char*, const char*> paths[] = {{"file:///", "/"},
                                                         {"file:///a/b", "/a/b"},
                                                         {"file:/a", "/a"},
                                                         {"FILE://LocalHost/a", "/a"},
                                                         {"file:///caf%c3%A9", "/caf\u00e9"},
                                                         {"file:///a%2Fb", "/a/b"},
                                                         {"file:////a", "//a"},
                                                         {"file:///a/", "/a"},
                                                         {"file:///a//", "/a"},
                                                         {"file:////", "/"},
                                                         {"file:///a/../b/./c", "/a/../b/./c"}};
    for (const auto& [url, path] : paths)
        EXPECT_EQ(pathOf(url), path);
}

TEST(FileURL, OtherURLsAreRefusedWithTheReason) {
    for (const char* url : {"", "http:///a", "/a", "fil", "files:///a", " file:///a"})
        EXPECT_EQ(failureOf(url), "it is not a file URL") << url;
    for (const char* url : {"file://host/a", "file://localhostess/a", "file://localhost:80/a",
                            "file://a@localhost/a", "file://127.0.0.1/a"})
        EXPECT_EQ(failureOf(url), "its host is not this machine") << url;
    for (const char* url : {"file:", "file:a", "file://", "file://localhost", "file:?a"})
        EXPECT_EQ(failureOf(url), "its path is not absolute") << url;
    for (const char* url : {"file:///a?", "file:///a#b", "file:///?", "file://localhost/#"})
        EXPECT_EQ(failureOf(url), "it has a query or a fragment") << url;
    for (const char* url :
         {"file:///%", "file:///%4", "file:///%4G", "file:///%G4", "file:///%%41"})
        EXPECT_EQ(failureOf(url), "it holds a broken percent-escape") << url;
    for (const char* url : {"file:///a b", "file:///\u00e9", "file:///[", "file:///a\n"})
        EXPECT_EQ(failureOf(url), "it holds a character that must be percent-encoded") << url;
    EXPECT_EQ(failureOf("file:///a%00b"), "its path holds a NUL character");
}

} // namespace

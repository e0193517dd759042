#include "platform/linux/URL.h"

#include <gtest/gtest.h>
#include <string>

using platform::linux_backend::fileURLWithString;

namespace {

TEST(URL, AURLFromOutsideKeepsItsText) {
    std::string failure;
    const auto url = fileURLWithString("FILE://localhost/caf%c3%a9/", failure);
    ASSERT_TRUE(url) << failure;
    EXPECT_EQ(url->description(), "FILE://localhost/caf%c3%a9/");
    EXPECT_EQ(url->path(), "/caf\u00e9");
    EXPECT_EQ(url->filePathURL()->description(), url->description());
}

TEST(URL, APathThatIsNotUTF8IsRefused) {
    for (const char* url : {"file:///%FF", "file:///a%C3", "file:///%ED%A0%80", "file:///%C0%AF"}) {
        std::string failure;
        EXPECT_EQ(fileURLWithString(url, failure), nullptr) << url;
        EXPECT_EQ(failure, "its path is not valid UTF-8") << url;
    }
}

} // namespace

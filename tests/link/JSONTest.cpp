#include "tests/RecordingTest.h"

using platform::NSDictionary;
using platform::Object;
using tests::script;

namespace {

class JSON : public tests::RecordingTest {
protected:
    JSON() { startConnected(); }

    NSDictionary parse(std::string_view text) { return extension->JSONParseDictionary(text); }
};

TEST_F(JSON, AnObjectGivesItsDictionary) {
    EXPECT_EQ(parse(R"({"type":"x","n":1})"),
              (NSDictionary{{"type", {std::string("x")}}, {"n", {std::int64_t{1}}}}));
}

TEST_F(JSON, EverythingElseGivesTheEmptyDictionaryWithoutATrace) {
    for (const char* text : {"", "[]", "[{\"type\":\"x\"}]", "5", "true", "null", "\"x\"", "{",
                             "{\"type\":\"x\"", "{type:1}", "hello"})
        EXPECT_TRUE(parse(text).empty()) << text;
    EXPECT_EQ(trace(), "");
    EXPECT_TRUE(calls("NSLog").empty());
}

TEST_F(JSON, ATextThatCannotBeEncodedGivesTheEmptyDictionary) {
    script().encoding = false;
    EXPECT_TRUE(parse("{\"type\":\"x\"}").empty());
    EXPECT_TRUE(calls("JSONObjectWithData").empty());
}

} // namespace

#include "tests/RecordingTest.h"

using platform::NSArray;
using platform::NSData;
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

TEST_F(JSON, ATextThatCannotBeEncodedGivesTheEmptyDictionary) {
    script().encoding = false;
    EXPECT_TRUE(parse("{\"type\":\"x\"}").empty());
    EXPECT_TRUE(calls("JSONObjectWithData").empty());
}

TEST_F(JSON, PrettyPrintingIndentsOnSeveralLines) {
    EXPECT_EQ(extension->JSONStringify(
                  {NSDictionary{{"a", {NSArray{{std::int64_t{1}}, {std::int64_t{2}}}}},
                                {"b", {NSArray()}}}},
                  true),
              "{\n  \"a\" : [\n    1,\n    2\n  ],\n  \"b\" : []\n}");
    EXPECT_EQ(calls("dataWithJSONObject:options:error: "), tests::Strings{"1"});
}

TEST_F(JSON, WhatIsNoContainerIsTheEmptyText) {
    for (const Object& value :
         {Object{std::string("x")}, Object{std::int64_t{5}}, Object{true},
          Object{platform::NSNull()}, Object{NSData()}, Object{NSArray{{NSData()}}}}) {
        EXPECT_EQ(extension->JSONStringify(value, false), "");
        EXPECT_EQ(extension->JSONStringify(value, true), "");
    }
    EXPECT_TRUE(calls("dataWithJSONObject").empty());
    EXPECT_EQ(trace(), "");
    EXPECT_TRUE(calls("NSLog").empty());
}

TEST_F(JSON, WhatCannotBeWrittenIsTheEmptyText) {
    script().writesJSON = false;
    EXPECT_EQ(extension->JSONStringify({NSArray()}, false), "");
    script().writesJSON = true;
    script().writtenJSON = NSData{.bytes = {0xff}};
    EXPECT_EQ(extension->JSONStringify({NSArray()}, false), "");
}

} // namespace

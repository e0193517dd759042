#include "extension/PublishedInterface.h"
#include "tests/RecordingTest.h"

#include <cerrno>
#include <functional>
#include <variant>

using findersync::FinderSync;
using platform::recording::AttributeList;
using tests::script;
using tests::Strings;

namespace {

class ExtendedAttributes : public tests::RecordingTest {
protected:
    ExtendedAttributes() { startConnected(); }

    /// A list of `size` bytes by the first call, and what the second call does.
    static void script(std::int64_t size, AttributeList second) {
        tests::script().attributeLists = {{.result = size, .bytes = {}}, std::move(second)};
    }
    /// The same list in both calls.
    static void scriptList(const std::string& bytes) {
        const auto size = static_cast<std::int64_t>(bytes.size());
        script(size, {.result = size, .bytes = bytes});
    }

    findersync::AttributesNames names() { return extension->attributesNamesAtPath("/item"); }

    void expectNames(const Strings& expected) {
        const auto result = names();
        EXPECT_EQ(result.error, std::nullopt);
        EXPECT_EQ(result.names, expected);
    }
    void expectError(const std::string& expected) {
        const auto result = names();
        EXPECT_EQ(result.error, expected);
        EXPECT_EQ(result.names, std::nullopt);
    }
};

TEST_F(ExtendedAttributes, AnItemWithoutAttributesHasNoNames) {
    script(0, {.result = 0, .bytes = {}});
    expectNames({});
    EXPECT_EQ(
        calls(),
        (Strings{"listxattr: /item null 0 -> 0", "malloc: 0", "listxattr: /item buffer 0 -> 0",
                 "initWithBytes:length:encoding: 0", "componentsSeparatedByString: "}));
}

TEST_F(ExtendedAttributes, ABufferOfNoBytesMayBeNone) {
    tests::script().memory = false; // which malloc is free to answer then
    script(0, {.result = 0, .bytes = {}});
    expectNames({});
}

TEST_F(ExtendedAttributes, TheListIsReadToItsFirstLengthAndItsLastPartIsDroppedWithoutALook) {
    // What the second call does not write is scripted, too: a fresh buffer may hold anything.
    const struct {
        std::int64_t second;
        std::string bytes;
        Strings names;
    } lists[] = {{4, {"a\0b\0", 4}, {"a", "b"}},
                 {17, {"user.z\0user.\xc3\xa9\0x\0", 17}, {"user.z", "user.\u00e9", "x"}},
                 {5, {"a\0\0b\0", 5}, {"a", "", "b"}},
                 {6, {"a\0rest", 6}, {"a"}},
                 {13, "no terminator", {}},
                 {2, {"a\0x\0", 4}, {"a", "x"}},
                 {-2, {"a\0", 2}, {"a"}}}; // only -1 is a failure
    for (const auto& [second, bytes, expected] : lists) {
        script(static_cast<std::int64_t>(bytes.size()), {.result = second, .bytes = bytes});
        expectNames(expected);
    }
}

TEST_F(ExtendedAttributes, AFailingSizeQueryGivesTheErrorInWords) {
    tests::script().attributeLists = {{.result = -1, .bytes = {}, .errorNumber = ENOENT}};
    expectError("No such file or directory");
    EXPECT_EQ(calls(), (Strings{"listxattr: /item null 0 -> -1", "errno",
                                "strerror: " + std::to_string(ENOENT), "initWithUTF8String:"}));
}

TEST_F(ExtendedAttributes, AListThatHasGrownGivesTheErrorOfTheSecondCall) {
    tests::script().errorText = "Numerical result out of range";
    script(4, {.result = -1, .bytes = {}, .errorNumber = ERANGE});
    expectError("Numerical result out of range");
    EXPECT_EQ(calls("strerror: "), Strings{std::to_string(ERANGE)});
    EXPECT_EQ(calls("malloc: "), Strings{"4"});
}

TEST_F(ExtendedAttributes, NamesThatAreNotUTF8AreAnUnknownErrorWhateverErrnoHolds) {
    script(3, {.result = 3, .bytes = std::string("\xff\xfe\0", 3), .errorNumber = ENOENT});
    expectError("Unknown error");
    EXPECT_TRUE(calls("errno").empty());
    script(4, {.result = 2, .bytes = std::string("a\0\xff\0", 4)});
    expectError("Unknown error");
}

TEST_F(ExtendedAttributes, EachCallHoldsOnToItsBufferHoweverItEnds) {
    // Memory that has been released does not hold its first bytes any more.
    const std::string list("user.long-enough-to-see\0", 24);
    const std::string broken("user.long-enough-to-se\xff\0", 24);
    scriptList(list);
    (void)names();
    script(24, {.result = -1, .bytes = list});
    (void)names();
    scriptList(broken);
    (void)names();
    EXPECT_EQ(calls("malloc: "), (Strings{"24", "24", "24"}));
    Strings kept;
    for (const void* const buffer : tests::world().buffers)
        kept.emplace_back(static_cast<const char*>(buffer), 24);
    EXPECT_EQ(kept, (Strings{list, list, broken}));
}

TEST_F(ExtendedAttributes, NoFieldIsTouchedAndNothingIsWritten) {
    scriptList(std::string("a\0", 2));
    (void)names();
    EXPECT_EQ(trace(), "");
    EXPECT_TRUE(calls("NSLog").empty());
    const FinderSync fresh;
    for (const auto& property : findersync::publishedProperties()) {
        const auto compare = [&](const auto& accessors) {
            if constexpr (std::is_same_v<decltype(accessors), const findersync::URLProperty&>)
                EXPECT_EQ(extension->myFolderURL()->path(), fresh.myFolderURL()->path());
            else
                EXPECT_EQ(std::invoke(accessors.get, *extension), std::invoke(accessors.get, fresh))
                    << property.name;
        };
        std::visit(compare, property.accessors);
    }
}

TEST_F(ExtendedAttributes, TheErrorComesThroughTheSlot) {
    class OwnWords : public FinderSync {
        std::string errnoDescription() override { return "own words"; }
    };
    startConnected<OwnWords>();
    tests::script().attributeLists = {{.result = -1, .bytes = {}}};
    expectError("own words");
    script(1, {.result = -1, .bytes = {}});
    expectError("own words");
}

TEST_F(ExtendedAttributes, AnErrorTextThatIsNotUTF8GivesTheBareNumber) {
    tests::script().errorText = "\xff";
    tests::script().attributeLists = {{.result = -1, .bytes = {}, .errorNumber = 22}};
    expectError("22");
    EXPECT_EQ(calls("errno").size(), 2U);
    tests::script().attributeLists = {{.result = -1, .bytes = {}, .errorNumber = -5}};
    expectError("-5");
}

} // namespace

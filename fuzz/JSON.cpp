// JSON both ways: whatever can be parsed and written is the same when it is parsed again.

#include "platform/linux/JSON.h"

#include "fuzz/Difference.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

using namespace platform::linux_backend;

namespace {

void requireSameAgain(const platform::Object& value, bool prettyPrinted) {
    const std::string text = JSONText(value, prettyPrinted);
    std::string failure;
    const auto again = parseJSON(text, failure);
    findersync::fuzz::require(again.has_value(), "what was written cannot be parsed: " + failure);
    findersync::fuzz::require(*again == value, "what was written stands for another value");
    findersync::fuzz::require(JSONText(*again, prettyPrinted) == text,
                              "what was written is written in another way");
    const bool isOneLine = text.find_first_of("\r\n") == std::string::npos;
    findersync::fuzz::require(prettyPrinted || isOneLine, "a compact text has line breaks");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string failure;
    const auto value = parseJSON(text, failure);
    findersync::fuzz::require(value.has_value() == failure.empty(),
                              "a failure has no reason, or success has one");
    // Not even valid JSON can be written when it holds an integer beyond every double.
    if (!value || !isJSONContainer(*value))
        return 0;
    requireSameAgain(*value, false);
    requireSameAgain(*value, true);
    return 0;
}

// NSString and NSData: strings are UTF-8 throughout.

#include "platform/Foundation.h"
#include "platform/text/Splitting.h"
#include "platform/text/Unicode.h"

#include <cstring>

namespace platform {

NSData dataWithBytes(const std::uint8_t* bytes, std::size_t length) {
    return {.bytes = {bytes, bytes + length}};
}

std::optional<std::string> stringWithUTF8Data(const NSData& data) {
    return stringWithUTF8Bytes(data.bytes.data(), data.bytes.size());
}

std::optional<std::string> stringWithUTF8Bytes(const void* bytes, std::size_t length) {
    std::string text(static_cast<const char*>(bytes), length);
    if (!text::isUTF8(text))
        return std::nullopt;
    return text;
}

std::optional<std::string> stringWithUTF8String(const char* text) {
    return stringWithUTF8Bytes(text, std::strlen(text));
}

std::optional<NSData> dataUsingUTF8Encoding(std::string_view text) {
    return NSData{.bytes = {text.begin(), text.end()}};
}

std::vector<std::string_view> componentsSeparatedByString(std::string_view text,
                                                          std::string_view separator) {
    return text::split(text, separator);
}

bool isEqualToString(std::string_view one, std::string_view other) {
    return text::areCanonicallyEquivalent(one, other);
}

bool containsString(std::string_view text, std::string_view searched) {
    return text::contains(text, searched);
}

} // namespace platform

#include "platform/recording/Recording.h"
#include "platform/text/Splitting.h"
#include "platform/text/Unicode.h"

namespace platform {

NSData dataWithBytes(const std::uint8_t* bytes, std::size_t length) {
    recording::record("initWithBytes:length: " + std::to_string(length));
    return {.bytes = {bytes, bytes + length}};
}

std::optional<std::string> stringWithUTF8Data(const NSData& data) {
    std::string text(data.bytes.begin(), data.bytes.end());
    recording::record("initWithData:encoding: " + text);
    if (!text::isUTF8(text))
        return std::nullopt;
    return text;
}

std::optional<std::string> stringWithUTF8Bytes(const void* bytes, std::size_t length) {
    std::string text(static_cast<const char*>(bytes), length);
    recording::record("initWithBytes:length:encoding: " + std::to_string(length));
    if (!text::isUTF8(text))
        return std::nullopt;
    return text;
}

std::optional<std::string> stringWithUTF8String(const char* text) {
    recording::record("initWithUTF8String:");
    if (!text::isUTF8(text))
        return std::nullopt;
    return text;
}

std::optional<NSData> dataUsingUTF8Encoding(std::string_view text) {
    recording::record("dataUsingEncoding: " + std::string(text));
    if (!recording::script().encoding)
        return std::nullopt;
    return NSData{.bytes = {text.begin(), text.end()}};
}

std::vector<std::string_view> componentsSeparatedByString(std::string_view text,
                                                          std::string_view separator) {
    recording::record("componentsSeparatedByString: " + std::string(text));
    return text::split(text, separator);
}

bool isEqualToString(std::string_view one, std::string_view other) {
    recording::record("isEqualToString: " + std::string(one) + " " + std::string(other));
    return text::areCanonicallyEquivalent(one, other);
}

bool containsString(std::string_view text, std::string_view searched) {
    recording::record("rangeOfString: " + std::string(text) + " " + std::string(searched));
    return text::contains(text, searched);
}

} // namespace platform

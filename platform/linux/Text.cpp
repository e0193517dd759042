// Strings: UTF-8 throughout, with ICU for what needs to know characters.

#include "platform/linux/Text.h"

#include "platform/Foundation.h"

#include <cstring>
#include <unicode/normlzr.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

namespace platform {

namespace {

/// Length of the ASCII text that the bytes start with.
std::size_t asciiPrefix(const char* bytes, std::size_t length) {
    std::size_t at = 0;
    for (; at + sizeof(std::uint64_t) <= length; at += sizeof(std::uint64_t)) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, bytes + at, sizeof eight);
        if ((eight & 0x8080808080808080U) != 0)
            break;
    }
    while (at < length && (static_cast<unsigned char>(bytes[at]) & 0x80U) == 0)
        ++at;
    return at;
}

bool isASCII(std::string_view text) {
    return asciiPrefix(text.data(), text.size()) == text.size();
}

icu::UnicodeString unicodeString(std::string_view text) {
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

} // namespace

namespace linux_backend {

bool isUTF8(std::string_view text) {
    text.remove_prefix(asciiPrefix(text.data(), text.size()));
    UErrorCode status = U_ZERO_ERROR;
    // Nothing is converted: asking for the length of the result checks the whole text.
    (void)u_strFromUTF8(nullptr, 0, nullptr, text.data(), static_cast<std::int32_t>(text.size()),
                        &status);
    return text.empty() || status == U_BUFFER_OVERFLOW_ERROR;
}

} // namespace linux_backend

NSData dataWithBytes(const std::uint8_t* bytes, std::size_t length) {
    return {.bytes = {bytes, bytes + length}};
}

std::optional<std::string> stringWithUTF8Data(const NSData& data) {
    std::string text(data.bytes.begin(), data.bytes.end());
    if (!linux_backend::isUTF8(text))
        return std::nullopt;
    return text;
}

std::optional<NSData> dataUsingUTF8Encoding(std::string_view text) {
    return NSData{.bytes = {text.begin(), text.end()}};
}

std::vector<std::string_view> componentsSeparatedByString(std::string_view text,
                                                          std::string_view separator) {
    std::vector<std::string_view> components;
    std::size_t begin = 0;
    for (auto end = text.find(separator); end != std::string_view::npos;
         end = text.find(separator, begin)) {
        components.push_back(text.substr(begin, end - begin));
        begin = end + separator.size();
    }
    components.push_back(text.substr(begin));
    return components;
}

bool isEqualToString(std::string_view one, std::string_view other) {
    if (one == other)
        return true;
    if (isASCII(one) && isASCII(other))
        return false;
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t order =
        icu::Normalizer::compare(unicodeString(one), unicodeString(other), 0, status);
    return U_SUCCESS(status) && order == 0;
}

} // namespace platform

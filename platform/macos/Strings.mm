#include "platform/macos/Strings.h"

#include "platform/Foundation.h"
#include "platform/text/Splitting.h"

#include <algorithm>
#include <cstring>

namespace platform {

namespace macos {

namespace {

constexpr std::string_view byteOrderMark = "\ufeff";

/// Decodes a text that begins with a byte-order mark and keeps the mark, which Foundation drops.
Reference<::NSString*> markedStringObject(std::string_view text) {
    const auto rest = stringObject(text.substr(byteOrderMark.size()));
    if (!rest)
        return {};
    @autoreleasepool {
        return retain<::NSString*>(
            [::NSString stringWithFormat:@"%C%@", unichar{0xfeff}, rest.get()]);
    }
}

} // namespace

Reference<::NSString*> stringObject(std::string_view text) {
    if (text.starts_with(byteOrderMark))
        return markedStringObject(text);
    return adopt([[::NSString alloc] initWithBytes:text.data()
                                            length:text.size()
                                          encoding:NSUTF8StringEncoding]);
}

std::string utf8Text(::NSString* string) {
    @autoreleasepool {
        ::NSData* const data = [string dataUsingEncoding:NSUTF8StringEncoding
                                    allowLossyConversion:YES];
        return {static_cast<const char*>([data bytes]), [data length]};
    }
}

bool isUTF8Encodable(::NSString* string) {
    return [string canBeConvertedToEncoding:NSUTF8StringEncoding] != NO;
}

} // namespace macos

namespace {

bool isASCII(std::string_view text) {
    return std::ranges::all_of(text, [](unsigned char byte) { return byte < 0x80; });
}

} // namespace

NSData dataWithBytes(const std::uint8_t* bytes, std::size_t length) {
    return {.bytes = {bytes, bytes + length}};
}

std::optional<std::string> stringWithUTF8Data(const NSData& data) {
    return stringWithUTF8Bytes(data.bytes.data(), data.bytes.size());
}

std::optional<std::string> stringWithUTF8Bytes(const void* bytes, std::size_t length) {
    const auto decoded = macos::stringObject({static_cast<const char*>(bytes), length});
    if (!decoded)
        return std::nullopt;
    return macos::utf8Text(decoded.get());
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

/// Foundation's `isEqualToString:` compares code units, so both texts are normalised to form C
/// first. The documentation of `compare:` without options does not promise canonical equivalence.
bool isEqualToString(std::string_view one, std::string_view other) {
    if (one == other)
        return true;
    if (isASCII(one) && isASCII(other))
        return false;
    @autoreleasepool {
        const auto normalized = [](std::string_view text) {
            return [macos::stringObject(text).autoreleased() precomposedStringWithCanonicalMapping];
        };
        return [normalized(one) isEqualToString:normalized(other)] != NO;
    }
}

/// Without options: case-sensitive, canonically equivalent sequences match, and the empty text is
/// not found.
bool containsString(std::string_view text, std::string_view searched) {
    const auto haystack = macos::stringObject(text);
    const auto needle = macos::stringObject(searched);
    return [haystack.get() rangeOfString:needle.get()].length > 0;
}

} // namespace platform

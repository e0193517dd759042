// NSString, NSData and NSJSONSerialization: strings are UTF-8 throughout.

#include "platform/Foundation.h"
#include "platform/linux/JSON.h"
#include "platform/linux/Text.h"

namespace platform {

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
    return linux_backend::split(text, separator);
}

bool isEqualToString(std::string_view one, std::string_view other) {
    return linux_backend::areCanonicallyEquivalent(one, other);
}

std::optional<Object> JSONObjectWithData(const NSData& data) {
    std::string failure;
    const std::string_view text(reinterpret_cast<const char*>(data.bytes.data()),
                                data.bytes.size());
    return linux_backend::parseJSON(text, failure);
}

} // namespace platform

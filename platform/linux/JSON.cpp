#include "platform/text/JSON.h"

#include "platform/Foundation.h"

namespace platform {

std::optional<Object> JSONObjectWithData(const NSData& data, std::string* failure) {
    std::string dropped;
    const std::string_view text(reinterpret_cast<const char*>(data.bytes.data()),
                                data.bytes.size());
    return text::parseJSON(text, failure == nullptr ? dropped : *failure);
}

bool isValidJSONObject(const Object& value) {
    return text::isJSONContainer(value);
}

std::optional<NSData> dataWithJSONObject(const Object& value, bool prettyPrinted) {
    return dataUsingUTF8Encoding(text::JSONText(value, prettyPrinted));
}

} // namespace platform

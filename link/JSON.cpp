// Converts between values and JSON, with the platform's parser and writer.

#include "extension/FinderSync.h"

#include <utility>

namespace findersync {

std::string FinderSync::JSONStringify(const platform::Object& value, bool prettyPrinted) {
    if (!platform::isValidJSONObject(value))
        return {};
    const std::optional<platform::NSData> data = platform::dataWithJSONObject(value, prettyPrinted);
    if (!data)
        return {};
    return platform::stringWithUTF8Data(*data).value_or("");
}

platform::NSDictionary FinderSync::JSONParseDictionary(std::string_view text) {
    const std::optional<platform::NSData> data = platform::dataUsingUTF8Encoding(text);
    if (!data)
        return {};
    std::optional<platform::Object> object = platform::JSONObjectWithData(*data);
    if (!object)
        return {};
    auto* const dictionary = std::get_if<platform::NSDictionary>(&object->value);
    return dictionary == nullptr ? platform::NSDictionary() : std::move(*dictionary);
}

} // namespace findersync

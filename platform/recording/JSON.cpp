#include "platform/text/JSON.h"

#include "platform/recording/Recording.h"

namespace platform {

std::optional<Object> JSONObjectWithData(const NSData& data, std::string* failure) {
    const std::string text(data.bytes.begin(), data.bytes.end());
    recording::record("JSONObjectWithData:options:error: " + text);
    std::string reason;
    std::optional<Object> object = text::parseJSON(text, reason);
    if (!object && failure != nullptr)
        *failure = "not JSON"; // independent of the parser's words
    return object;
}

bool isValidJSONObject(const Object& value) {
    recording::record("isValidJSONObject:");
    return recording::script().validJSON && text::isJSONContainer(value);
}

std::optional<NSData> dataWithJSONObject(const Object& value, bool prettyPrinted) {
    recording::record("dataWithJSONObject:options:error: " +
                      std::to_string(static_cast<int>(prettyPrinted)));
    if (!recording::script().writesJSON)
        return std::nullopt;
    if (recording::script().writtenJSON)
        return recording::script().writtenJSON;
    const std::string text = text::JSONText(value, prettyPrinted);
    return NSData{.bytes = {text.begin(), text.end()}};
}

} // namespace platform

// Strings, JSON, settings, URLs and the log.

#include "platform/Splitting.h"
#include "platform/linux/FileURL.h"
#include "platform/linux/IntegerValue.h"
#include "platform/linux/JSON.h"
#include "platform/linux/Text.h"
#include "platform/recording/Recording.h"

#include <utility>

namespace platform {

namespace {

class RecordedURL : public NSURL {
public:
    RecordedURL(std::string description, std::optional<std::string> path, bool hasFilePath)
        : description_(std::move(description)), path_(std::move(path)), hasFilePath_(hasFilePath) {}
    ~RecordedURL() override { recording::record("NSURL released: " + description_); }
    RecordedURL(const RecordedURL&) = delete;
    RecordedURL& operator=(const RecordedURL&) = delete;

    [[nodiscard]] std::shared_ptr<const NSURL> filePathURL() const override {
        recording::record("filePathURL: " + description_);
        return hasFilePath_ ? recording::makeURL(description_, path_) : nullptr;
    }
    [[nodiscard]] std::optional<std::string> path() const override {
        recording::record("path: " + description_);
        return path_;
    }
    [[nodiscard]] std::string description() const override { return description_; }

private:
    std::string description_;
    std::optional<std::string> path_;
    bool hasFilePath_;
};

class RecordedSuite : public NSUserDefaults {
public:
    explicit RecordedSuite(NSDictionary settings) : settings_(std::move(settings)) {}
    ~RecordedSuite() override { recording::record("NSUserDefaults released"); }
    RecordedSuite(const RecordedSuite&) = delete;
    RecordedSuite& operator=(const RecordedSuite&) = delete;

    [[nodiscard]] std::optional<Object> objectForKey(std::string_view key) const override {
        recording::record("objectForKey: " + std::string(key));
        const auto found = settings_.find(key);
        return found == settings_.end() ? std::nullopt : std::optional<Object>(found->second);
    }
    [[nodiscard]] std::int64_t integerForKey(std::string_view key) const override {
        recording::record("integerForKey: " + std::string(key));
        const auto found = settings_.find(key);
        return found == settings_.end() ? 0 : linux_backend::integerValue(found->second);
    }

private:
    NSDictionary settings_;
};

} // namespace

NSData dataWithBytes(const std::uint8_t* bytes, std::size_t length) {
    recording::record("initWithBytes:length: " + std::to_string(length));
    return {.bytes = {bytes, bytes + length}};
}

std::optional<std::string> stringWithUTF8Data(const NSData& data) {
    std::string text(data.bytes.begin(), data.bytes.end());
    recording::record("initWithData:encoding: " + text);
    if (!linux_backend::isUTF8(text))
        return std::nullopt;
    return text;
}

std::optional<std::string> stringWithUTF8Bytes(const void* bytes, std::size_t length) {
    std::string text(static_cast<const char*>(bytes), length);
    recording::record("initWithBytes:length:encoding: " + std::to_string(length));
    if (!linux_backend::isUTF8(text))
        return std::nullopt;
    return text;
}

std::optional<std::string> stringWithUTF8String(const char* text) {
    recording::record("initWithUTF8String:");
    if (!linux_backend::isUTF8(text))
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
    return split(text, separator);
}

bool isEqualToString(std::string_view one, std::string_view other) {
    recording::record("isEqualToString: " + std::string(one) + " " + std::string(other));
    return linux_backend::areCanonicallyEquivalent(one, other);
}

bool containsString(std::string_view text, std::string_view searched) {
    recording::record("rangeOfString: " + std::string(text) + " " + std::string(searched));
    return linux_backend::contains(text, searched);
}

std::optional<Object> JSONObjectWithData(const NSData& data) {
    const std::string text(data.bytes.begin(), data.bytes.end());
    recording::record("JSONObjectWithData:options:error: " + text);
    std::string failure;
    return linux_backend::parseJSON(text, failure);
}

bool isValidJSONObject(const Object& value) {
    recording::record("isValidJSONObject:");
    return recording::script().validJSON && linux_backend::isJSONContainer(value);
}

std::optional<NSData> dataWithJSONObject(const Object& value, bool prettyPrinted) {
    recording::record("dataWithJSONObject:options:error: " +
                      std::to_string(static_cast<int>(prettyPrinted)));
    if (!recording::script().writesJSON)
        return std::nullopt;
    if (recording::script().writtenJSON)
        return recording::script().writtenJSON;
    const std::string text = linux_backend::JSONText(value, prettyPrinted);
    return NSData{.bytes = {text.begin(), text.end()}};
}

std::shared_ptr<const NSUserDefaults> userDefaultsWithSuiteName(std::string_view suiteName,
                                                                std::string& failure) {
    recording::record("initWithSuiteName: " + std::string(suiteName));
    if (recording::script().suiteOpens)
        return std::make_shared<RecordedSuite>(recording::script().settings);
    failure = recording::script().suiteFailure;
    return nullptr;
}

std::shared_ptr<const NSURL> fileURLWithPath(std::string_view path) {
    recording::record("fileURLWithPath: " + std::string(path));
    std::string absolute = path.starts_with('/') ? std::string(path) : "/" + std::string(path);
    std::string description = linux_backend::fileURLFromPath(absolute);
    while (absolute.size() > 1 && absolute.back() == '/')
        absolute.pop_back();
    return recording::makeURL(std::move(description), std::move(absolute));
}

std::string mainBundlePath() {
    recording::record("bundlePath");
    return "/Extensions/FinderSync.appex";
}

void NSLog(std::string_view format, std::string_view argument) {
    recording::record("NSLog: " + std::string(format) + " <- " + std::string(argument));
}

namespace recording {

std::shared_ptr<const NSURL> makeURL(std::string description, std::optional<std::string> path,
                                     bool hasFilePath) {
    return std::make_shared<RecordedURL>(std::move(description), std::move(path), hasFilePath);
}

} // namespace recording

} // namespace platform

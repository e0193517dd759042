#include "platform/recording/Recording.h"
#include "platform/text/FileURL.h"

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

} // namespace

std::shared_ptr<const NSURL> fileURLWithPath(std::string_view path) {
    recording::record("fileURLWithPath: " + std::string(path));
    std::string absolute = path.starts_with('/') ? std::string(path) : "/" + std::string(path);
    std::string description = text::fileURLFromPath(absolute);
    while (absolute.size() > 1 && absolute.back() == '/')
        absolute.pop_back();
    return recording::makeURL(std::move(description), std::move(absolute));
}

namespace recording {

std::shared_ptr<const NSURL> makeURL(std::string description, std::optional<std::string> path,
                                     bool hasFilePath) {
    return std::make_shared<RecordedURL>(std::move(description), std::move(path), hasFilePath);
}

} // namespace recording

} // namespace platform

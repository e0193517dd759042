#include "platform/linux/URL.h"

#include "platform/text/FileURL.h"
#include "platform/text/Unicode.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace platform {

namespace {

class LocalFileURL : public NSURL, public std::enable_shared_from_this<LocalFileURL> {
public:
    LocalFileURL(std::string text, std::string path)
        : text_(std::move(text)), path_(std::move(path)) {}

    [[nodiscard]] std::shared_ptr<const NSURL> filePathURL() const override {
        return shared_from_this();
    }
    [[nodiscard]] std::optional<std::string> path() const override { return path_; }
    [[nodiscard]] std::string description() const override { return text_; }

private:
    std::string text_;
    std::string path_;
};

std::string absolutePath(std::string_view path) {
    if (path.starts_with('/'))
        return std::string(path);
    std::error_code error; // ignored: the working directory may have been removed
    std::string absolute = std::filesystem::current_path(error).string();
    if (!path.empty())
        absolute.append("/").append(path);
    return absolute.starts_with('/') ? absolute : "/" + absolute;
}

} // namespace

namespace linux_backend {

std::shared_ptr<const NSURL> fileURLWithString(std::string_view url, std::string& failure) {
    std::optional<std::string> path = text::pathFromFileURL(url, failure);
    if (!path)
        return nullptr;
    if (!text::isUTF8(*path)) {
        failure = "its path is not valid UTF-8";
        return nullptr;
    }
    return std::make_shared<LocalFileURL>(std::string(url), *std::move(path));
}

} // namespace linux_backend

std::shared_ptr<const NSURL> fileURLWithPath(std::string_view path) {
    std::string absolute = absolutePath(path);
    std::string text = text::fileURLFromPath(absolute);
    while (absolute.size() > 1 && absolute.back() == '/')
        absolute.pop_back();
    return std::make_shared<LocalFileURL>(std::move(text), std::move(absolute));
}

} // namespace platform

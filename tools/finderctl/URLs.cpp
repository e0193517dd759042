#include "tools/finderctl/URLs.h"

#include "platform/text/FileURL.h"
#include "tools/console/Text.h"
#include "tools/finderctl/Failure.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string_view>

namespace finderctl {

namespace {

bool isURL(std::string_view argument) {
    return argument.starts_with("file:") || argument.find("://") != std::string_view::npos;
}

std::string absolutePath(const std::string& path) {
    std::error_code error;
    std::string absolute = std::filesystem::absolute(path, error).lexically_normal();
    if (error)
        throw Failure("\"" + console::printable(path) +
                      "\" cannot be made an absolute path: " + error.message());
    while (absolute.size() > 1 && absolute.back() == '/')
        absolute.pop_back();
    return absolute;
}

std::string urlOfArgument(const std::string& argument) {
    if (argument.empty())
        throw Failure("a path is empty");
    if (!console::isUTF8(argument))
        throw Failure("\"" + console::printable(argument) +
                      "\" is not valid UTF-8, and the extension takes nothing else");
    if (isURL(argument))
        return argument;
    const std::string path = absolutePath(argument);
    if (!console::isUTF8(path))
        throw Failure("the working directory \"" + console::printable(path) +
                      "\" is not valid UTF-8, and the extension takes nothing else");
    return platform::text::fileURLFromPath(path);
}

} // namespace

std::vector<std::string> urlsOfArguments(const std::vector<std::string>& arguments) {
    std::vector<std::string> urls;
    urls.reserve(arguments.size());
    std::ranges::transform(arguments, std::back_inserter(urls), urlOfArgument);
    return urls;
}

std::string pathOfURL(const std::string& url) {
    std::string failure;
    return platform::text::pathFromFileURL(url, failure).value_or(url);
}

} // namespace finderctl

#include "hosts/linux/Marshalling.h"

#include "platform/linux/Image.h"
#include "platform/linux/Menu.h"
#include "platform/linux/URL.h"
#include "platform/text/Unicode.h"

#include <cerrno>
#include <cstring>

namespace hosts::linux_host {

namespace {

// The bus disconnects whoever sends an array of more than 64 MiB, and a reply to GetAll is one
// array of all properties.
constexpr std::size_t longestArgument = std::size_t{4} * 1024 * 1024; // bytes, of a text or a list
constexpr std::size_t longestList = std::size_t{32} * 1024 * 1024;    // bytes, in a reply
constexpr std::size_t longestQuotation = 1024;                        // bytes, in an error message

int checkURL(const std::string& text, URL& url, sd_bus_error* error) {
    std::string failure;
    url = platform::linux_backend::fileURLWithString(text, failure);
    if (url)
        return 0;
    return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS,
                             "%s is not the URL of a local file: %s", quoted(text).c_str(),
                             failure.c_str());
}

} // namespace

/// A string on the bus ends at its first NUL. sd-bus refuses a message with a noncharacter.
int MessageWriter::append(const std::string& text) {
    size_ += text.size();
    return appendBasic('s', platform::text::withoutNoncharacters(text).c_str());
}

int MessageWriter::append(bool value) {
    const int number = value ? 1 : 0;
    return appendBasic('b', &number);
}

int MessageWriter::append(const std::vector<std::string>& list) {
    std::size_t length = 0;
    int result = sd_bus_message_open_container(message_, 'a', "s");
    for (auto element = list.begin(); result >= 0 && element != list.end(); ++element) {
        length += element->size() + textOverhead;
        result = length > longestList ? -ENOBUFS : append(*element);
    }
    size_ += textOverhead * list.size();
    return result < 0 ? result : sd_bus_message_close_container(message_);
}

int MessageWriter::append(const platform::NSMenu* menu) {
    int result = append(menu != nullptr);
    if (result >= 0)
        result = sd_bus_message_open_container(message_, 'a', "(sss)");
    if (menu != nullptr) {
        const auto& items = static_cast<const platform::linux_backend::Menu&>(*menu).items();
        for (auto item = items.begin(); result >= 0 && item != items.end(); ++item)
            result = appendItem(**item);
    }
    return result < 0 ? result : sd_bus_message_close_container(message_);
}

int MessageWriter::appendItem(const platform::NSMenuItem& menuItem) {
    const auto& item = static_cast<const platform::linux_backend::MenuItem&>(menuItem);
    int result = sd_bus_message_open_container(message_, 'r', "sss");
    for (const std::string& text : {item.title(), item.action(), item.imageName()}) {
        if (result >= 0)
            result = append(text);
    }
    return result < 0 ? result : sd_bus_message_close_container(message_);
}

int MessageWriter::append(
    const std::map<std::string, platform::linux_backend::FinderSyncController::Badge>& map) {
    int result = sd_bus_message_open_container(message_, 'a', "{s(ss)}");
    for (const auto& [identifier, badge] : map) {
        if (result < 0)
            break;
        const auto& image = static_cast<const platform::linux_backend::ImageFile&>(*badge.image);
        result = sd_bus_message_append(message_, "{s(ss)}", identifier.c_str(),
                                       image.path().c_str(), badge.label.c_str());
    }
    return result < 0 ? result : sd_bus_message_close_container(message_);
}

int read(sd_bus_message* message, std::string& text) {
    const char* value = nullptr;
    const int result = sd_bus_message_read_basic(message, 's', &value);
    if (result <= 0)
        return result;
    if (std::strlen(value) > longestArgument)
        return -ENOBUFS; // before a copy doubles the memory that the message takes
    text = value;
    return result;
}

int read(sd_bus_message* message, std::uint32_t& number) {
    return sd_bus_message_read_basic(message, 'u', &number);
}

int read(sd_bus_message* message, std::int64_t& number) {
    return sd_bus_message_read_basic(message, 'x', &number);
}

int read(sd_bus_message* message, bool& value) {
    int number = 0;
    const int result = sd_bus_message_read_basic(message, 'b', &number);
    value = number != 0;
    return result;
}

int read(sd_bus_message* message, std::vector<std::string>& list) {
    int result = sd_bus_message_enter_container(message, 'a', "s");
    std::string element;
    std::size_t length = 0;
    while (result >= 0 && (result = read(message, element)) > 0) {
        length += element.size() + textOverhead;
        if (length > longestArgument)
            return -ENOBUFS;
        list.push_back(element);
    }
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

int read(sd_bus_message* message, URL& url, sd_bus_error* error) {
    std::string text;
    const int result = read(message, text);
    return result < 0 ? result : checkURL(text, url, error);
}

int read(sd_bus_message* message, std::vector<URL>& urls, sd_bus_error* error) {
    std::vector<std::string> texts;
    int result = read(message, texts);
    for (auto text = texts.begin(); result >= 0 && text != texts.end(); ++text)
        result = checkURL(*text, urls.emplace_back(), error);
    return result;
}

std::string quoted(const std::string& text) {
    if (text.size() > longestQuotation)
        return "a text of " + std::to_string(text.size()) + " bytes";
    std::string result = "\"";
    result += text;
    result += '"';
    return result;
}

} // namespace hosts::linux_host

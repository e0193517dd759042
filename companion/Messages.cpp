#include "companion/Messages.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <initializer_list>
#include <utility>

namespace finder_sync {

namespace {

namespace json = boost::json;

std::string quoted(std::string_view text) {
    return json::serialize(json::string_view(text));
}

std::string message(std::string_view type,
                    std::initializer_list<std::pair<const char*, std::string_view>> members) {
    std::string line = "{\"type\":" + quoted(type);
    for (const auto& [key, value] : members)
        line.append(",\"").append(key).append("\":").append(quoted(value));
    return line += "}\n";
}

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Cuts a title to the characters that take no more than so many bytes in JSON.
void cut(std::string& title, std::size_t size) {
    for (std::size_t start = 0, end = 0; start < title.size(); start = end) {
        end = start + 1;
        while (end < title.size() && isContinuation(title[end]))
            ++end;
        const std::size_t length =
            quoted(std::string_view(title).substr(start, end - start)).size() - 2;
        if (length > size) {
            title.resize(start);
            return;
        }
        size -= length;
    }
}

} // namespace

bool isUTF8(std::string_view text) {
    boost::system::error_code error;
    (void)json::parse(quoted(text), error); // which is strict about it
    return !error;
}

std::string addFolder(std::string_view path) {
    return message("add_folder", {{"path", path}});
}

std::string deleteFolder(std::string_view path) {
    return message("del_folder", {{"path", path}});
}

std::string setLocale(const Titles& titles) {
    return message("set_locale", {{"shareContactTitle", titles.shareContact},
                                  {"shareViaUrlTitle", titles.shareViaUrl},
                                  {"backupTitle", titles.backup}});
}

std::string setMenuUsage(bool displaysBackup) {
    return message("set_menu_usage", {{"displayBackup", displaysBackup ? "1" : "0"}});
}

void fitIntoBlock(Titles& titles) {
    if (setLocale(titles).size() <= blockSize)
        return;
    const std::size_t share = (blockSize - setLocale({}).size()) / 3;
    cut(titles.shareContact, share);
    cut(titles.shareViaUrl, share);
    cut(titles.backup, share);
}

} // namespace finder_sync

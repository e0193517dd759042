// companion-core-driver: does with the library's core what the lines on its standard input say, and
// answers each by a line. Both are JSON; a text stands for bytes, by the characters U+0000 to
// U+00FF.

#include "finder_sync_companion/Companion.h"

#include <boost/json.hpp>
#include <iostream>
#include <optional>
#include <string>

namespace {

namespace json = boost::json;
using finder_sync::Companion;
using finder_sync::Connection;
using finder_sync::Refusal;

std::string bytesOf(const json::value& value) {
    const std::string_view text = value.get_string();
    std::string bytes;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const auto byte = static_cast<unsigned char>(text[index]);
        if (byte < 0x80)
            bytes += text[index];
        else // the lead byte has the two upper bits of the character
            bytes += static_cast<char>((byte & 3) << 6 | (text[++index] & 0x3F));
    }
    return bytes;
}

json::string textOf(std::string_view bytes) {
    json::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x80)
            text.push_back(static_cast<char>(0xC0 | byte >> 6));
        text.push_back(byte < 0x80 ? character : static_cast<char>(0x80 | (byte & 0x3F)));
    }
    return text;
}

template <typename Values, typename Conversion>
json::array arrayOf(const Values& values, Conversion conversion) {
    json::array array;
    for (const auto& value : values)
        array.emplace_back(conversion(value));
    return array;
}

json::array arrayOf(const std::vector<Refusal>& refusals) {
    return arrayOf(refusals, [](const Refusal& refusal) {
        return json::array{textOf(refusal.path), static_cast<int>(refusal.reason)};
    });
}

class Driver {
public:
    json::value answer(const json::object& command) {
        const auto& [name, value] = *command.begin();
        if (name == "folders") {
            std::vector<std::string> paths;
            for (const json::value& path : value.get_array())
                paths.push_back(bytesOf(path));
            return arrayOf(companion_.setFolders(paths));
        }
        if (name == "titles")
            return arrayOf(companion_.setTitles(
                {bytesOf(value.at(0)), bytesOf(value.at(1)), bytesOf(value.at(2))}));
        if (name == "receive")
            return receive(bytesOf(value));
        if (name == "block") {
            const auto block = connection_->nextBlock();
            return block ? json::value(textOf(*block)) : json::value();
        }
        if (name == "backup")
            companion_.setBackup(value.get_bool());
        else
            connection_.emplace(companion_);
        return nullptr;
    }

private:
    json::value receive(const std::string& bytes) {
        const auto reports = connection_->receive(bytes);
        return {{"reports", arrayOf(reports,
                                    [](const finder_sync::Report& report) {
                                        return json::array{static_cast<int>(report.type),
                                                           arrayOf(report.paths, textOf)};
                                    })},
                {"dropped", connection_->droppedPaths()},
                {"failed", connection_->failed() ? json::value(textOf(*connection_->failed()))
                                                 : json::value()}};
    }

    Companion companion_;
    std::optional<Connection> connection_{std::in_place, companion_};
};

} // namespace

int main() {
    Driver driver;
    for (std::string line; std::getline(std::cin, line);)
        std::cout << driver.answer(json::parse(line).get_object()) << std::endl;
}

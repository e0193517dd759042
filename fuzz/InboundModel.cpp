#include "fuzz/InboundModel.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

namespace findersync::fuzz {

namespace {

std::optional<std::string> stringIn(const boost::json::object& message, const char* key) {
    const auto* const value = message.if_contains(key);
    if (value == nullptr || !value->is_string())
        return std::nullopt;
    return std::string(value->get_string().c_str(), value->get_string().size());
}

/// Whether a text that is JSON has a number, other than an integer, that is beyond every double:
/// the parser lets some of them pass.
bool hasNumberBeyondLimits(const std::string& text) {
    constexpr const char* partsOfNumbers = "+-.0123456789eE";
    std::size_t place = 0;
    while ((place = text.find_first_of("\"-0123456789", place)) != std::string::npos) {
        if (text[place] == '"') {
            while (text[++place] != '"')
                place += text[place] == '\\' ? 1 : 0;
            ++place;
            continue;
        }
        const std::size_t end =
            std::min(text.find_first_not_of(partsOfNumbers, place), text.size());
        const std::string number = text.substr(place, end - place);
        if (number.find_first_of(".eE") != std::string::npos &&
            std::isinf(std::strtod(number.c_str(), nullptr)))
            return true;
        place = end;
    }
    return false;
}

bool areEqual(std::string_view one, std::string_view other) {
    return composed(one) == composed(other);
}

} // namespace

std::u16string composed(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* const normalizer = icu::Normalizer2::getNFCInstance(status);
    const icu::UnicodeString result = normalizer->normalize(
        icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())}),
        status);
    return {result.getBuffer(), static_cast<std::size_t>(result.length())};
}

bool isText(std::string_view bytes) {
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t length = 0;
    (void)u_strFromUTF8(nullptr, 0, &length, bytes.data(), static_cast<std::int32_t>(bytes.size()),
                        &status);
    return status == U_ZERO_ERROR || status == U_BUFFER_OVERFLOW_ERROR ||
           status == U_STRING_NOT_TERMINATED_WARNING;
}

bool InboundModel::receive(std::string_view bytes) {
    while (!bytes.empty()) {
        if (!read(bytes.substr(0, 1024)))
            return false;
        bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 1024));
    }
    return true;
}

bool InboundModel::read(std::string_view bytes) {
    if (!isText(bytes))
        return false;
    for (;;) {
        const std::size_t end = bytes.find('\n');
        const std::string_view line = bytes.substr(0, end);
        if (line.empty())
            return true;
        if (!apply(line))
            return false;
        if (end == std::string_view::npos)
            return true;
        bytes.remove_prefix(end + 1);
    }
}

bool InboundModel::apply(std::string_view line) {
    boost::json::parse_options options;
    options.max_depth = 512;
    boost::json::error_code error;
    const auto value = boost::json::parse({line.data(), line.size()}, error, {}, options);
    if (error || !value.is_object() || hasNumberBeyondLimits(std::string(line)))
        return false;
    const boost::json::object& message = value.get_object();
    const auto type = stringIn(message, "type");
    if (!type)
        return false;
    if (*type == "add_folder" || *type == "del_folder") {
        const auto path = stringIn(message, "path");
        if (!path)
            return false;
        const auto isSame = [&path](const std::string& root) { return areEqual(root, *path); };
        const auto found = std::ranges::find_if(roots, isSame);
        if (*type == "del_folder" && found != roots.end())
            roots.erase(found);
        if (*type == "add_folder" && found == roots.end())
            roots.push_back(*path);
    } else if (*type == "set_locale") {
        const auto contact = stringIn(message, "shareContactTitle");
        const auto url = stringIn(message, "shareViaUrlTitle");
        const auto backup = stringIn(message, "backupTitle");
        if (!contact || !url || !backup)
            return false;
        shareContactTitle = *contact;
        shareViaUrlTitle = *url;
        backupTitle = *backup;
    } else if (*type == "set_menu_usage") {
        const auto usage = stringIn(message, "displayBackup");
        if (!usage)
            return false;
        displaysBackup = *usage == "1";
    }
    return true;
}

} // namespace findersync::fuzz

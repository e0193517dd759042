#include "companion/Reports.h"

#include <algorithm>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parser.hpp>

namespace finder_sync {

namespace {

namespace json = boost::json;

constexpr struct KnownType {
    std::string_view name;
    ReportType type;
} knownTypes[] = {
    {"clicked_create_url_link", ReportType::CreateUrlLink},
    {"clicked_backup", ReportType::Backup},
    {"clicked_share_contacts", ReportType::ShareContacts},
    {"clicked_in_progress", ReportType::InProgress},
    {"clicked_not_synced", ReportType::NotSynced},
    {"clicked_synced", ReportType::Synced},
};

/// Takes the report that the JSON value is. Returns what is wrong with it, none for nothing.
std::optional<std::string> convert(const json::value& value, Report& report) {
    const json::object& object = value.get_object(); // the text begins with a brace
    const json::value* const type = object.if_contains("type");
    const json::value* const items = object.if_contains("items");
    if (object.size() != 2 || type == nullptr || !type->is_string() || items == nullptr ||
        !items->is_array() || !std::ranges::all_of(items->get_array(), &json::value::is_string))
        return "a report has not the shape of a report";
    const std::string_view name = type->get_string();
    const auto* const known = std::ranges::find(knownTypes, name, &KnownType::name);
    if (known == std::end(knownTypes))
        return "a report has an unknown type: " + std::string(name);
    report.type = known->type;
    report.paths.reserve(items->get_array().size());
    for (const json::value& item : items->get_array())
        report.paths.emplace_back(item.get_string());
    return std::nullopt;
}

} // namespace

std::optional<std::string> parseReport(std::string_view text, Report& report) {
    // A report has its place on the stack; only one of unusual length has to be allocated.
    unsigned char values[4096];
    unsigned char unfinished[2048];
    json::monotonic_resource resource(values, sizeof values);
    json::parser parser({}, {}, unfinished);
    parser.reset(&resource);
    boost::system::error_code error;
    parser.write(text, error);
    if (error)
        return "not JSON: " + error.message();
    return convert(parser.release(), report);
}

std::optional<std::string_view> ReportSplitter::next(std::string_view& bytes) {
    if (depth_ == 0) {
        text_.clear();
        bytes.remove_prefix(std::min(bytes.find_first_not_of(" \t\r\n"), bytes.size()));
        if (!bytes.empty() && bytes.front() != '{')
            failed_ = "not JSON: a report does not begin with \"{\"";
    }
    if (failed_ || bytes.empty())
        return std::nullopt;
    const std::size_t size = sizeOfRest(bytes);
    text_.append(bytes.substr(0, size));
    bytes.remove_prefix(size);
    if (text_.size() > sizeLimit_)
        failed_ = "a report is longer than " + std::to_string(sizeLimit_ >> 20U) + " MiB";
    if (failed_ || depth_ != 0)
        return std::nullopt;
    return text_;
}

/// How many of the bytes belong to the current report; `depth_` is then 0 if they complete it.
std::size_t ReportSplitter::sizeOfRest(std::string_view bytes) {
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        const char byte = bytes[index];
        if (isEscaped_)
            isEscaped_ = false;
        else if (isInString_ && byte == '\\')
            isEscaped_ = true;
        else if (byte == '"')
            isInString_ = !isInString_;
        else if (!isInString_ && byte == '{')
            ++depth_;
        else if (!isInString_ && byte == '}' && --depth_ == 0)
            return index + 1;
    }
    return bytes.size();
}

} // namespace finder_sync

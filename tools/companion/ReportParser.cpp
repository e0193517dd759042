#include "tools/companion/ReportParser.h"

#include <algorithm>
#include <boost/json/serialize.hpp>
#include <boost/json/stream_parser.hpp>

namespace companion {

namespace {

constexpr std::string_view whitespace = " \t\r\n";

} // namespace

ReportParser::ReportParser() : parser_(std::make_unique<boost::json::stream_parser>()) {}
ReportParser::~ReportParser() = default;

bool ReportParser::take(std::string_view bytes, const ReportHandler& handler,
                        std::string& failure) {
    while (!bytes.empty()) {
        if (!isWithinReport()) {
            bytes.remove_prefix(std::min(bytes.find_first_not_of(whitespace), bytes.size()));
            if (bytes.empty())
                break;
        }
        const std::size_t count = takeSome(bytes, failure);
        if (count == 0)
            return false;
        bytes.remove_prefix(count);
        if (!parser_->done())
            continue;
        const std::string report = boost::json::serialize(parser_->release());
        reset();
        handler(report);
    }
    return true;
}

/// Returns how many of the bytes belong to the current report, 0 on failure.
std::size_t ReportParser::takeSome(std::string_view bytes, std::string& failure) {
    if (!isWithinReport() && bytes.front() != '{') {
        failure = "it does not start with \"{\"";
        return 0;
    }
    boost::json::error_code error;
    const std::size_t count = parser_->write_some(bytes.data(), bytes.size(), error);
    size_ += count;
    if (error)
        failure = error.message();
    else if (size_ > sizeLimit)
        failure = "it is larger than " + std::to_string(sizeLimit / 1024 / 1024) + " MiB";
    else
        return count;
    return 0;
}

void ReportParser::reset() {
    parser_->reset();
    size_ = 0;
}

} // namespace companion

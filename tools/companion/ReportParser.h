#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace boost::json {
class stream_parser;
}

namespace companion {

/// Finds the click reports in the bytes that come from the extension: JSON objects back to back,
/// without anything between them, in pieces of any size.
class ReportParser {
public:
    /// Is called with each report, as compact JSON text.
    using ReportHandler = std::function<void(const std::string& report)>;

    ReportParser();
    ~ReportParser();
    ReportParser(const ReportParser&) = delete;
    ReportParser& operator=(const ReportParser&) = delete;

    /// More bytes than this in one report are an error.
    static constexpr std::size_t sizeLimit = std::size_t{64} * 1024 * 1024;

    /// Takes the next bytes and hands on every report that they complete. Returns false for bytes
    /// that are no report; `failure` then says in words why, and `reset` has to follow.
    [[nodiscard]] bool take(std::string_view bytes, const ReportHandler& handler,
                            std::string& failure);

    /// Whether the bytes so far end within a report.
    [[nodiscard]] bool isWithinReport() const { return size_ > 0; }

    /// Forgets an unfinished report: another extension has connected.
    void reset();

private:
    [[nodiscard]] std::size_t takeSome(std::string_view bytes, std::string& failure);

    std::unique_ptr<boost::json::stream_parser> parser_;
    std::size_t size_ = 0; ///< Bytes of the unfinished report so far.
};

} // namespace companion

#pragma once

#include <boost/json.hpp>
#include <functional>
#include <string>
#include <string_view>

namespace companion {

/// Finds the click reports in the bytes that come from the extension: JSON objects back to back,
/// without anything between them, in pieces of any size.
class ReportParser {
public:
    using ReportHandler = std::function<void(const boost::json::value& report)>;

    /// A report of more bytes than this is taken for a mistake.
    static constexpr std::size_t sizeLimit = std::size_t{64} * 1024 * 1024;

    /// Takes the next bytes and hands on every report that they complete. Gives false when they
    /// are no reports; `failure` then says in words why, and the parser is of no further use
    /// before `reset`.
    [[nodiscard]] bool take(std::string_view bytes, const ReportHandler& handler,
                            std::string& failure);

    /// Whether the bytes so far end within a report.
    [[nodiscard]] bool isWithinReport() const { return size_ > 0; }

    /// Forgets an unfinished report: another extension has connected.
    void reset();

private:
    [[nodiscard]] std::size_t takeSome(std::string_view bytes, std::string& failure);

    boost::json::stream_parser parser_;
    std::size_t size_ = 0; ///< Bytes of the unfinished report so far.
};

} // namespace companion

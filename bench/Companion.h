#pragma once

#include "bench/FileDescriptor.h"
#include "bench/InboundTraffic.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace findersync::bench {

/// Counts what a trace tells, however it is cut into pieces.
class TraceCounter {
public:
    void add(std::string_view piece);

    [[nodiscard]] std::size_t bytes() const { return bytes_; }
    [[nodiscard]] std::size_t events() const { return events_; } ///< "receiving"
    [[nodiscard]] std::size_t lines() const { return lines_; }   ///< inbound lines: "type - …"

private:
    void addLine(std::string_view line);

    std::string begun_; ///< a line whose end has not come yet
    std::size_t bytes_ = 0;
    std::size_t events_ = 0;
    std::size_t lines_ = 0;
};

/// Plays the companion application to the program at the other end of a connection, and drains that
/// program's trace. Whatever program it is, it is driven by this very code.
class Companion {
public:
    /// How much is written at once, and how far the writes may run ahead of what the trace shows
    /// as handled, both in bursts.
    struct Pace {
        std::size_t burstsPerWrite;
        std::size_t burstsInFlight;
    };

    Companion(FileDescriptor connection, FileDescriptor trace);

    /// Sends the traffic's burst that many times; returns when the trace shows all as handled.
    void send(const Traffic& traffic, std::size_t bursts, Pace pace);

    /// What the trace has told since the start.
    [[nodiscard]] const TraceCounter& trace() const { return counter_; }

private:
    void write(std::string_view bytes) const;
    void drain();

    FileDescriptor connection_;
    FileDescriptor trace_;
    TraceCounter counter_;
    std::vector<char> buffer_;
};

} // namespace findersync::bench

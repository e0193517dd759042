#pragma once

#include "bench/FileDescriptor.h"
#include "bench/ForkedProcess.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace findersync::bench {

/// Takes log lines as a service manager's journal does: a Unix stream socket that another process
/// drains. Counts the bytes.
class LogSink {
public:
    LogSink();

    /// What to write to.
    [[nodiscard]] int descriptor() const { return writeEnd_.get(); }

    /// The value of $JOURNAL_STREAM that names it.
    [[nodiscard]] std::string journalStream() const;

    /// How many bytes have been drained.
    [[nodiscard]] std::uint64_t drained() const { return *drained_; }

    /// Waits until the socket is empty; throws unless that many bytes have been drained by then.
    void requireDrained(std::uint64_t bytes) const;

private:
    using Counter = std::atomic<std::uint64_t>;
    struct Unmap {
        void operator()(Counter* counter) const;
    };

    FileDescriptor readEnd_;
    FileDescriptor writeEnd_;
    std::unique_ptr<Counter, Unmap> drained_; ///< shared with the reader
    std::optional<ForkedProcess> reader_;
};

} // namespace findersync::bench

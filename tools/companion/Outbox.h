#pragma once

#include <deque>
#include <string>

namespace companion {

/// The lines that wait for the extension, in order. They outlive a connection: a line that was only
/// sent in part is sent to the next extension from its beginning.
class Outbox {
public:
    /// Takes a line with its LF.
    void add(std::string line);

    [[nodiscard]] bool isEmpty() const { return lines_.empty(); }
    [[nodiscard]] std::size_t count() const { return lines_.size(); }

    /// Number of bytes in all waiting lines.
    [[nodiscard]] std::size_t size() const { return size_; }

    /// The next line to send; the outbox is not empty.
    [[nodiscard]] const std::string& first() const { return lines_.front(); }

    /// Sends the first line, or the rest of it, with one call. Returns 0 when the socket accepted
    /// some of it, EAGAIN when it accepts nothing for now, or the errno of a lost connection.
    [[nodiscard]] int writeFirst(int socket);

    /// The connection is lost: has a line that was sent in part start from its beginning again.
    void rewind() { sentOfFirst_ = 0; }

private:
    std::deque<std::string> lines_;
    std::size_t size_ = 0;
    std::size_t sentOfFirst_ = 0;
};

} // namespace companion

#pragma once

#include <deque>
#include <string>

namespace companion {

/// The lines that wait for the extension, in order. They outlive a connection: a line that was not
/// sent whole goes to the next extension from its beginning.
class Outbox {
public:
    /// Takes a line with its LF.
    void add(std::string line);

    [[nodiscard]] bool isEmpty() const { return lines_.empty(); }
    [[nodiscard]] std::size_t count() const { return lines_.size(); }

    /// Number of bytes in all waiting lines.
    [[nodiscard]] std::size_t size() const { return size_; }

    /// The line whose turn it is; there is one.
    [[nodiscard]] const std::string& first() const { return lines_.front(); }

    /// Writes the first line, or what is left of it, in one write. Gives 0 when the socket took
    /// something of it, EAGAIN when it takes nothing for now, or the errno of a lost link.
    [[nodiscard]] int writeFirst(int socket);

    /// The link is gone: has a line that was sent in part start again from its beginning.
    void rewind() { sentOfFirst_ = 0; }

private:
    std::deque<std::string> lines_;
    std::size_t size_ = 0;
    std::size_t sentOfFirst_ = 0;
};

} // namespace companion

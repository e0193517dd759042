#include "bench/Companion.h"

#include "bench/SystemCall.h"

#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace findersync::bench {

namespace {

constexpr std::size_t pipeCapacity = 64 * 1024;

std::string repeated(std::string_view text, std::size_t times) {
    std::string result;
    for (; times > 0; --times)
        result += text;
    return result;
}

} // namespace

void TraceCounter::add(std::string_view piece) {
    bytes_ += piece.size();
    for (auto end = piece.find('\n'); end != std::string_view::npos; end = piece.find('\n')) {
        if (begun_.empty()) {
            addLine(piece.substr(0, end));
        } else {
            addLine(begun_.append(piece.substr(0, end)));
            begun_.clear();
        }
        piece.remove_prefix(end + 1);
    }
    begun_.append(piece);
}

void TraceCounter::addLine(std::string_view line) {
    if (line.starts_with("type - "))
        ++lines_;
    else if (line == "receiving")
        ++events_;
}

Companion::Companion(FileDescriptor connection, FileDescriptor trace)
    : connection_(std::move(connection)), trace_(std::move(trace)), buffer_(pipeCapacity) {}

void Companion::send(const Traffic& traffic, std::size_t bursts, Pace pace) {
    const std::string data = repeated(traffic.burst, pace.burstsPerWrite);
    const std::size_t before = counter_.lines();
    std::size_t sent = 0;
    std::size_t handled = 0;
    while (handled < bursts) {
        for (; sent < bursts && sent + pace.burstsPerWrite <= handled + pace.burstsInFlight;
             sent += pace.burstsPerWrite)
            write(data);
        drain();
        handled = (counter_.lines() - before) / Traffic::linesPerBurst;
    }
}

void Companion::write(std::string_view bytes) const {
    // A write of this size is taken as a whole: far less than the socket's buffer is under way.
    const auto count =
        checked(::send(connection_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), "send");
    if (static_cast<std::size_t>(count) != bytes.size())
        throw std::runtime_error("a burst was not sent whole");
}

void Companion::drain() {
    const auto count = checked(::read(trace_.get(), buffer_.data(), buffer_.size()), "read");
    if (count == 0)
        throw std::runtime_error("the program under test has ended");
    counter_.add(std::string_view(buffer_.data(), static_cast<std::size_t>(count)));
}

} // namespace findersync::bench

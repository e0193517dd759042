// inbound-sender CONNECTION TRACE PROCESS BURST TRACE-SIZE BURSTS PER-WRITE
//
// Plays the companion application to a program under test. CONNECTION and TRACE are descriptors:
// the connection to send to, and the pipe to which PROCESS writes its trace. Sends BURST that many
// times, PER-WRITE bursts in each write, and drains the trace, TRACE-SIZE bytes for a burst that is
// sent alone. Prints the seconds that this took, the seconds of processor time that PROCESS used,
// and its number of events.

#include "bench/SystemCalls.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using findersync::bench::checked;

constexpr std::size_t linesPerBurst = 10;
/// Less than one segment of the loopback interface. A burst that is cut in two would be a message
/// cut in two, which ends the extension.
constexpr std::size_t burstsInFlight = 32;
constexpr std::size_t warmUpBursts = 200;

/// Counts the lines of a trace, in whatever pieces it is read.
struct TraceCounter {
    std::size_t bytes = 0;
    std::size_t events = 0; ///< "receiving"
    std::size_t lines = 0;  ///< inbound lines: "type - …"
    std::string begun;      ///< a line whose end has not been read yet

    void add(std::string_view piece) {
        bytes += piece.size();
        begun.append(piece);
        std::string_view left = begun;
        for (auto end = left.find('\n'); end != std::string_view::npos; end = left.find('\n')) {
            lines += left.starts_with("type - ") ? 1U : 0U;
            events += left.starts_with("receiving\n") ? 1U : 0U;
            left.remove_prefix(end + 1);
        }
        begun.erase(0, begun.size() - left.size());
    }
};

class Link {
public:
    Link(int connection, int trace)
        : connection_(connection),
          trace_(trace),
          buffer_(std::size_t{64} * 1024) {} // all that a pipe holds

    /// What the trace has told since the start.
    [[nodiscard]] const TraceCounter& counter() const { return counter_; }

    /// Returns when the trace shows that all bursts have been handled.
    void send(std::string_view burst, std::size_t bursts, std::size_t perWrite, std::size_t ahead) {
        std::string data;
        for (std::size_t number = 0; number < perWrite; ++number)
            data += burst;
        const std::size_t before = counter_.lines;
        std::size_t sent = 0;
        std::size_t handled = 0;
        while (handled < bursts) {
            for (; sent < bursts && sent + perWrite <= handled + ahead; sent += perWrite)
                write(data);
            drain();
            handled = (counter_.lines - before) / linesPerBurst;
        }
    }

private:
    void write(std::string_view bytes) const {
        const auto count =
            checked(::send(connection_, bytes.data(), bytes.size(), MSG_NOSIGNAL), "send");
        if (static_cast<std::size_t>(count) != bytes.size())
            throw std::runtime_error("a burst was not sent whole");
    }

    void drain() {
        const auto count = checked(::read(trace_, buffer_.data(), buffer_.size()), "read");
        if (count == 0)
            throw std::runtime_error("the program under test has ended");
        counter_.add({buffer_.data(), static_cast<std::size_t>(count)});
    }

    int connection_;
    int trace_;
    TraceCounter counter_;
    std::vector<char> buffer_;
};

/// Seconds of user and system time.
double processorTime(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(process, &clock) != 0)
        throw std::runtime_error("the program under test has ended");
    checked(::clock_gettime(clock, &time), "clock_gettime");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Sends single bursts, and makes sure that each leaves exactly the expected trace.
void warmUp(Link& link, std::string_view burst, std::size_t traceSize) {
    link.send(burst, 1, 1, 1); // the first one makes the root folders known
    const std::size_t before = link.counter().bytes;
    link.send(burst, warmUpBursts, 1, 1);
    if (link.counter().bytes - before != warmUpBursts * traceSize)
        throw std::runtime_error("a burst leaves another trace than expected");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 8)
        throw std::invalid_argument("usage: inbound-sender CONNECTION TRACE PROCESS BURST "
                                    "TRACE-SIZE BURSTS PER-WRITE");
    Link link(std::stoi(argv[1]), std::stoi(argv[2]));
    const pid_t process = std::stoi(argv[3]);
    const std::string_view burst = argv[4];
    warmUp(link, burst, std::stoul(argv[5]));

    const std::size_t eventsBefore = link.counter().events;
    const double processorTimeBefore = processorTime(process);
    const auto begin = std::chrono::steady_clock::now();
    link.send(burst, std::stoul(argv[6]), std::stoul(argv[7]), burstsInFlight);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    std::printf("%.9f %.9f %zu\n", seconds.count(), processorTime(process) - processorTimeBefore,
                link.counter().events - eventsBefore);
    return EXIT_SUCCESS;
}

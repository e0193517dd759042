// click-bench PORT LISTENER CLICKS RESULTS: how long a click takes from the call of its action
// until the last byte of its report has arrived at the companion application, and how long the same
// bytes take when they are sent bare. Writes the microseconds of each pair to the file RESULTS, the
// bare ones first. The trace goes to standard output.

#include "bench/SystemCalls.h"
#include "extension/FinderSync.h"
#include "platform/linux/FinderSyncController.h"
#include "platform/linux/RunLoop.h"
#include "process/Descriptor.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using findersync::FinderSync;
using findersync::bench::checked;
using process::Descriptor;
using Moment = std::chrono::steady_clock::time_point;

constexpr std::string_view selectedPath =
    "/home/anna/Documents/Customers/Quarterly reports/2026/Figures of the 1st quarter";
constexpr std::string_view report =
    R"({"items":["/home/anna/Documents/Customers/Quarterly reports/2026/)"
    R"(Figures of the 1st quarter"],"type":"clicked_create_url_link"})";

/// Between two clicks everybody goes to sleep, as between those of a user.
constexpr std::chrono::microseconds pause{200};

/// A process that receives reports and notes when each has arrived. It ends with the connection.
class ReportPeer {
public:
    explicit ReportPeer(Descriptor connection) {
        std::array<int, 2> ends{};
        checked(::pipe2(ends.data(), O_CLOEXEC), "pipe2");
        arrivals_.reset(ends[0]);
        const Descriptor writeEnd(ends[1]);
        if (checked(::fork(), "fork") == 0) {
            (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
            receive(connection.get(), writeEnd.get());
        }
    }

    /// When the next report had arrived as a whole.
    [[nodiscard]] Moment arrival() const {
        Moment moment;
        if (::read(arrivals_.get(), &moment, sizeof moment) != sizeof moment)
            throw std::runtime_error("no click report, or a wrong one, has arrived");
        return moment;
    }

private:
    [[noreturn]] static void receive(int connection, int arrivals) {
        std::string received(report.size(), '\0');
        while (::recv(connection, received.data(), received.size(), MSG_WAITALL) ==
                   static_cast<ssize_t>(received.size()) &&
               received == report) {
            const Moment now = std::chrono::steady_clock::now();
            checked(::write(arrivals, &now, sizeof now), "write");
        }
        ::_exit(EXIT_SUCCESS);
    }

    Descriptor arrivals_;
};

/// The object, connected by its real streams.
class Clicker : private FinderSync {
public:
    explicit Clicker(std::uint16_t port) {
        setServerPort(port);
        connect();
        settle();
    }

    void click() { createLinkClicked(nullptr); }

    /// Has the run loop tell that there is room to write, which it does after each write.
    void settle() {
        for (hasSpace_ = false; !hasSpace_;)
            platform::linux_backend::runLoopOfThisThread().runOnce();
    }

private:
    void stream(platform::NSStream& stream, platform::NSStreamEvent event) override {
        FinderSync::stream(stream, event);
        hasSpace_ = hasSpace_ || event == platform::NSStreamEvent::HasSpaceAvailable;
        if (event == platform::NSStreamEvent::ErrorOccurred)
            throw std::runtime_error("the link does not hold");
    }

    bool hasSpace_ = false;
};

Descriptor accepted(int listener) {
    return Descriptor(checked(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept4"));
}

void sendBare(int connection) {
    if (checked(::send(connection, report.data(), report.size(), MSG_DONTWAIT | MSG_NOSIGNAL),
                "send") != static_cast<ssize_t>(report.size()))
        throw std::runtime_error("a report was not sent whole");
}

/// Microseconds from the call until the peer has everything.
template <typename Action> double measure(const ReportPeer& peer, Action action) {
    std::this_thread::sleep_for(pause);
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::micro>(peer.arrival() - begin).count();
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5)
        throw std::invalid_argument("usage: click-bench PORT LISTENER CLICKS RESULTS");
    const int listener = std::stoi(argv[2]);
    const int bareEnd = findersync::bench::connectToLoopback(argv[1]);
    const ReportPeer barePeer(accepted(listener));
    Clicker extension(static_cast<std::uint16_t>(std::stoi(argv[1])));
    const ReportPeer peer(accepted(listener));
    platform::linux_backend::finderSyncController().setSelectedItemURLs(
        std::vector<FinderSync::URL>{platform::fileURLWithPath(selectedPath)});

    std::ofstream results(argv[4]);
    for (int left = std::stoi(argv[3]); left > 0; --left) {
        const double bare = measure(barePeer, [&] { sendBare(bareEnd); });
        const double real = measure(peer, [&] { extension.click(); });
        extension.settle();
        results << bare << ' ' << real << '\n';
    }
    return results.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
}

// click-bench: how long a click takes from the call of its action until the last byte of its report
// has arrived at the companion application, beside sending the same bytes bare.

#include "bench/LogSink.h"
#include "bench/Loopback.h"
#include "bench/Redirection.h"
#include "bench/Report.h"
#include "bench/ReportPeer.h"
#include "bench/Session.h"
#include "bench/SystemCall.h"
#include "extension/FinderSync.h"
#include "platform/linux/FinderSyncController.h"
#include "platform/linux/RunLoop.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <thread>

namespace findersync::bench {

namespace {

constexpr std::string_view selectedPath =
    "/home/anna/Documents/Customers/Quarterly reports/2026/Figures of the 1st quarter";
constexpr std::string_view report =
    R"({"items":["/home/anna/Documents/Customers/Quarterly reports/2026/)"
    R"(Figures of the 1st quarter"],"type":"clicked_create_url_link"})";

/// Between two clicks everybody goes to sleep, as between those of a user.
constexpr std::chrono::microseconds pause{200};

constexpr int shots = 5'000;
constexpr int quickShots = 50;

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

void select(std::string_view path) {
    platform::linux_backend::finderSyncController().setSelectedItemURLs(
        std::vector<FinderSync::URL>{platform::fileURLWithPath(path)});
}

void sendBare(const FileDescriptor& connection) {
    const auto count =
        checked(::send(connection.get(), report.data(), report.size(), MSG_DONTWAIT | MSG_NOSIGNAL),
                "send");
    if (static_cast<std::size_t>(count) != report.size())
        throw std::runtime_error("a report was not sent whole");
}

/// Microseconds from the call until the peer has everything.
template <typename Action> double measure(const ReportPeer& peer, Action action) {
    std::this_thread::sleep_for(pause);
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::micro>(peer.arrival() - begin).count();
}

struct Times {
    std::vector<double> bare;
    std::vector<double> extension;
};

Times measureShots(int count) {
    const LogSink sink;
    const Redirection trace(STDOUT_FILENO, sink.descriptor());
    const LoopbackListener listener;
    const FileDescriptor bareEnd = connectToLoopback(listener.port());
    const ReportPeer barePeer(listener.accept(), std::string(report));
    Clicker extension(listener.port());
    const ReportPeer peer(listener.accept(), std::string(report));
    select(selectedPath);

    Times times;
    for (int shot = 0; shot < count; ++shot) {
        times.bare.push_back(measure(barePeer, [&] { sendBare(bareEnd); }));
        times.extension.push_back(measure(peer, [&] { extension.click(); }));
        extension.settle();
    }
    return times;
}

int run(const Session& session) {
    const Times times = measureShots(session.isQuick() ? quickShots : shots);
    const double bare = median(times.bare);
    const double extension = median(times.extension);
    (void)std::fprintf(stderr, "click: bare %.2f us, extension %.2f us\n", bare, extension);
    return bench::report({{.what = "click, from the action to the last byte at the peer",
                           .measured = extension / bare,
                           .atMost = 1.2}},
                         !session.isQuick());
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 60);
}

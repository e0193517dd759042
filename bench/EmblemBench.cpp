// emblem-bench: how long it takes until an emblem is on the screen, from the companion
// application's message on, beside an item that an empty plug-in invalidates by itself.

#include "bench/AnnouncingCompanion.h"
#include "bench/Caja.h"
#include "bench/Report.h"
#include "bench/SystemCall.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <glib.h>
#include <memory>
#include <stdexcept>
#include <thread>

namespace findersync::bench {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;
using Times = std::vector<double>;

constexpr std::chrono::seconds patience{10};
constexpr std::chrono::microseconds glance{50};

template <typename Condition> void waitUntil(const Condition& isMet, const char* what) {
    const auto limit = Clock::now() + patience;
    while (!isMet()) {
        if (Clock::now() > limit)
            throw std::runtime_error(std::string(what) + " has not come about");
        std::this_thread::sleep_for(glance);
    }
}

/// Milliseconds from each change of an item's badge until its pixels have changed. The changes
/// come when Caja rests, and at no fixed step of whatever clock it goes by.
Times measure(const Screen& screen, const Caja& caja, int changes,
              const std::function<void(bool)>& change) {
    (void)caja.processorTimeAtRest();
    change(true);
    std::optional<Screen::Point> emblem;
    waitUntil([&] { return (emblem = screen.find(emblemColor, emblemEdge)).has_value(); },
              "the emblem");
    Times times;
    for (int number = 0; number < changes; ++number) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300 + number * 37 % 100));
        const bool isBadged = number % 2 != 0;
        const auto begin = Clock::now();
        change(isBadged);
        waitUntil([&] { return (screen.color(*emblem) == emblemColor) == isBadged; },
                  "a change of the emblem");
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    }
    return times;
}

std::string urlOf(const fs::path& path) {
    const std::unique_ptr<char, decltype(&g_free)> url(
        g_filename_to_uri(path.c_str(), nullptr, nullptr), &g_free);
    return url.get();
}

class EmblemBench {
public:
    explicit EmblemBench(const Session& session)
        : session_(session),
          plugins_(cajaPlugins(session)),
          folder_(session.privateFile("Small folder")),
          item_(folder_ / "Sync") {
        fs::create_directories(item_);
    }

    [[nodiscard]] Times fromMessage(int changes) const {
        const FileDescriptor log(checked(::open("/dev/null", O_WRONLY | O_CLOEXEC), "open"));
        const AnnouncingCompanion companion(session_, log.get());
        const Screen screen(session_.privateFile("desktop"));
        const Caja caja(session_, screen, plugins_.ours, folder_);
        return measure(screen, caja, changes, [&](bool isBadged) {
            isBadged ? companion.addFolder(item_) : companion.deleteFolder(item_);
            companion.waitForMessages(1); // somebody has to read the trace
        });
    }
    [[nodiscard]] Times fromInvalidation(int changes) const {
        const Screen screen(session_.privateFile("desktop"));
        const Caja caja(session_, screen, plugins_.empty, folder_,
                        {"FINDER_SYNC_BENCH_BADGED=" + urlOf(item_)});
        return measure(screen, caja, changes,
                       [&](bool) { checked(::kill(caja.id(), SIGUSR1), "kill"); });
    }

private:
    const Session& session_;
    CajaPlugins plugins_;
    fs::path folder_;
    fs::path item_;
};

void append(Times& all, const Times& more) {
    all.insert(all.end(), more.begin(), more.end());
}

void tell(const char* begin, Times times) {
    std::ranges::sort(times);
    (void)std::fprintf(stderr,
                       "an emblem's change on the screen, %s: %.1f ms (middle half %.1f-%.1f) of "
                       "%zu\n",
                       begin, median(times), times[times.size() / 4], times[times.size() * 3 / 4],
                       times.size());
}

int run(const Session& session) {
    const EmblemBench bench(session);
    const int changes = session.isQuick() ? 2 : 16;
    Times real;
    Times bare;
    for (int turn = session.isQuick() ? 1 : 3; turn > 0; --turn) {
        append(bare, bench.fromInvalidation(changes));
        append(real, bench.fromMessage(changes));
    }
    tell("from a bare invalidation", bare);
    tell("from the companion's message", real);
    (void)std::fprintf(stderr, "an emblem's change on the screen: %.1f ms more\n",
                       median(real) - median(bare));
    return report(
        {{.what = "Caja, an emblem on the screen", .measured = median(real) / median(bare)}},
        !session.isQuick());
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 180);
}

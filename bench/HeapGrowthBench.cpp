// heap-growth-bench: what the extension's heap gains with each has-bytes-available event. It keeps
// one buffer of 1,024 bytes for each, on purpose, and must keep nothing else.

#include "bench/Companion.h"
#include "bench/LiveBytes.h"
#include "bench/Loopback.h"
#include "bench/Pipe.h"
#include "bench/Session.h"
#include "bench/SystemCall.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <thread>
#include <utility>

namespace findersync::bench {

namespace {

constexpr std::int64_t bytesPerEvent = 1024;

/// How long the heap must stay as it is to count as quiet: after an event's trace has been written,
/// changes are still signalled on the bus.
constexpr std::chrono::milliseconds quietTime{200};

struct HeapState {
    std::int64_t bytes = 0;
    std::int64_t blocks = 0;

    bool operator==(const HeapState&) const = default;
};

/// The file in which the counting allocator of another process counts.
class CountedHeap {
public:
    explicit CountedHeap(const std::string& path);
    ~CountedHeap() { ::munmap(liveBytes_, sizeof *liveBytes_); }
    CountedHeap(const CountedHeap&) = delete;
    CountedHeap& operator=(const CountedHeap&) = delete;

    /// Waits until the heap is quiet.
    [[nodiscard]] HeapState settledState() const;

private:
    [[nodiscard]] HeapState state() const { return {liveBytes_->bytes, liveBytes_->blocks}; }

    LiveBytes* liveBytes_ = nullptr;
};

CountedHeap::CountedHeap(const std::string& path) {
    const FileDescriptor file(
        checked(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), "open"));
    checked(::ftruncate(file.get(), sizeof(LiveBytes)), "ftruncate");
    void* const memory =
        ::mmap(nullptr, sizeof(LiveBytes), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("the counter cannot be mapped");
    liveBytes_ = static_cast<LiveBytes*>(memory);
}

HeapState CountedHeap::settledState() const {
    HeapState before;
    HeapState now = state();
    do {
        before = std::exchange(now, state());
        std::this_thread::sleep_for(quietTime);
        now = state();
    } while (now != before);
    return now;
}

struct Case {
    std::size_t events;
    std::size_t readsPerEvent;
};

/// Sends the events one by one, and says whether the heap has grown by exactly their buffers.
bool isExact(Companion& companion, const CountedHeap& heap, const Traffic& traffic, Case test) {
    const Companion::Pace eventByEvent = {.burstsPerWrite = test.readsPerEvent,
                                          .burstsInFlight = test.readsPerEvent};
    companion.send(traffic, 100 * test.readsPerEvent, eventByEvent); // buffers find their size

    const HeapState before = heap.settledState();
    const std::size_t eventsBefore = companion.trace().events();
    companion.send(traffic, test.events * test.readsPerEvent, eventByEvent);
    const HeapState after = heap.settledState();

    const auto events = static_cast<std::int64_t>(companion.trace().events() - eventsBefore);
    const std::int64_t bytes = after.bytes - before.bytes;
    const std::int64_t blocks = after.blocks - before.blocks;
    const bool isExact = events == static_cast<std::int64_t>(test.events) &&
                         bytes == events * bytesPerEvent && blocks == events;
    std::printf("heap growth, %s, %lld events of %zu reads, bytes\t%lld\texactly %lld\t%s\n",
                std::string(traffic.name).c_str(), static_cast<long long>(events),
                test.readsPerEvent, static_cast<long long>(bytes),
                static_cast<long long>(events * bytesPerEvent), isExact ? "yes" : "NO");
    (void)std::fprintf(stderr, "heap growth: %lld events, %lld bytes and %lld blocks more\n",
                       static_cast<long long>(events), static_cast<long long>(bytes),
                       static_cast<long long>(blocks));
    return isExact;
}

bool isExact(const Session& session, const Traffic& traffic) {
    const LoopbackListener listener;
    const std::string counter = session.privateFile("live-bytes");
    const CountedHeap heap(counter);
    Pipe pipe;
    const ChildProcess extension(session.extension(listener.port()),
                                 {.output = pipe.writeEnd.get()},
                                 {"LD_PRELOAD=" + session.benchFile("libcounting-allocator.so"),
                                  std::string(liveBytesVariable) + "=" + counter});
    pipe.writeEnd.reset();
    Companion companion(listener.accept(), std::move(pipe.readEnd));
    const std::size_t events = session.isQuick() ? 1'000 : 10'000;
    const bool areSingleReadsExact =
        isExact(companion, heap, traffic, {.events = events, .readsPerEvent = 1});
    const bool areSeveralReadsExact =
        isExact(companion, heap, traffic, {.events = events / 4, .readsPerEvent = 4});
    return areSingleReadsExact && areSeveralReadsExact;
}

int run(const Session& session) {
    bool isEveryCaseExact = true;
    for (const std::string_view name : {"ascii", "non-ascii"})
        isEveryCaseExact = isExact(session, trafficWithName(name).value()) && isEveryCaseExact;
    return isEveryCaseExact ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 120);
}

#include "bench/LogSink.h"

#include "bench/SystemCall.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace findersync::bench {

namespace {

constexpr std::chrono::seconds patience{5};

std::atomic<std::uint64_t>* sharedCounter() {
    using Counter = std::atomic<std::uint64_t>;
    void* const memory =
        ::mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("the counter of the log cannot be mapped");
    return new (memory) Counter(0);
}

int drain(int descriptor, std::atomic<std::uint64_t>& drained) {
    std::vector<char> buffer(std::size_t{64} * 1024);
    for (;;) {
        const auto count = checked(::read(descriptor, buffer.data(), buffer.size()), "read");
        if (count == 0)
            return EXIT_SUCCESS;
        drained += static_cast<std::uint64_t>(count);
    }
}

} // namespace

void LogSink::Unmap::operator()(Counter* counter) const {
    (void)::munmap(counter, sizeof *counter);
}

LogSink::LogSink() : drained_(sharedCounter()) {
    std::array<int, 2> ends{};
    checked(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
    readEnd_ = FileDescriptor(ends[0]);
    writeEnd_ = FileDescriptor(ends[1]);
    reader_.emplace([this] {
        writeEnd_.reset();
        return drain(readEnd_.get(), *drained_);
    });
    readEnd_.reset();
}

std::string LogSink::journalStream() const {
    struct stat status {};
    checked(::fstat(writeEnd_.get(), &status), "fstat");
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

void LogSink::requireDrained(std::uint64_t bytes) const {
    const auto limit = std::chrono::steady_clock::now() + patience;
    while (drained() < bytes && std::chrono::steady_clock::now() < limit)
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    if (drained() != bytes)
        throw std::runtime_error("the log holds " + std::to_string(drained()) + " bytes, not the " +
                                 std::to_string(bytes) + " that were expected");
}

} // namespace findersync::bench

#include "tools/companion/Follower.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace companion {

namespace {

/// Longer lines are shown in pieces.
constexpr std::size_t unfinishedLimit = std::size_t{64} * 1024;

bool isNamedPipe(int descriptor) {
    struct stat status{};
    return ::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

} // namespace

bool Follower::follow(sd_event* event, const std::string& path, std::string& failure) {
    // Opened for writing too: reading then meets no end of file when a writer closes the pipe.
    pipe_.reset(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!pipe_ || !isNamedPipe(pipe_.get())) {
        failure = "\"" + path + "\" cannot be followed: " +
                  (pipe_ ? "it is not a named pipe" : std::strerror(errno));
        return false;
    }
    const auto handler = [](sd_event_source*, int, std::uint32_t, void* self) {
        static_cast<Follower*>(self)->read();
        return 0;
    };
    if (const int result =
            sd_event_add_io(event, process::Out(source_), pipe_.get(), EPOLLIN, handler, this);
        result < 0) {
        failure = "\"" + path + "\" cannot be followed: " + std::strerror(-result);
        return false;
    }
    return true;
}

void Follower::read() {
    char buffer[4096];
    const ssize_t count = ::read(pipe_.get(), buffer, sizeof buffer);
    if (count <= 0)
        return;
    unfinishedLine_.append(buffer, static_cast<std::size_t>(count));
    std::size_t begin = 0;
    for (auto end = unfinishedLine_.find('\n'); end != std::string::npos;
         end = unfinishedLine_.find('\n', begin)) {
        observer_(std::string_view(unfinishedLine_).substr(begin, end - begin));
        begin = end + 1;
    }
    unfinishedLine_.erase(0, begin);
    if (unfinishedLine_.size() >= unfinishedLimit)
        observer_(std::exchange(unfinishedLine_, {}));
}

} // namespace companion

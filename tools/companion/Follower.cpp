#include "tools/companion/Follower.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace companion {

namespace {

/// A line that goes on for longer is shown in pieces.
constexpr std::size_t lineLimit = std::size_t{64} * 1024;

bool isNamedPipe(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

} // namespace

Follower::~Follower() {
    sd_event_source_disable_unref(source_);
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

bool Follower::follow(sd_event* event, const std::string& path, std::string& failure) {
    // Open for writing too: the pipe then has no end, and one program can write after another.
    descriptor_ = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor_ < 0 || !isNamedPipe(descriptor_)) {
        failure = "\"" + path + "\" cannot be followed: " +
                  (descriptor_ < 0 ? std::strerror(errno) : "it is not a named pipe");
        return false;
    }
    const auto handler = [](sd_event_source*, int, std::uint32_t, void* self) {
        static_cast<Follower*>(self)->read();
        return 0;
    };
    if (const int result = sd_event_add_io(event, &source_, descriptor_, EPOLLIN, handler, this);
        result < 0) {
        failure = "\"" + path + "\" cannot be followed: " + std::strerror(-result);
        return false;
    }
    return true;
}

void Follower::read() {
    char buffer[4096];
    const ssize_t count = ::read(descriptor_, buffer, sizeof buffer);
    if (count <= 0)
        return;
    begun_.append(buffer, static_cast<std::size_t>(count));
    std::size_t begin = 0;
    for (auto end = begun_.find('\n'); end != std::string::npos; end = begun_.find('\n', begin)) {
        observer_(std::string_view(begun_).substr(begin, end - begin));
        begin = end + 1;
    }
    begun_.erase(0, begin);
    if (begun_.size() >= lineLimit)
        observer_(std::exchange(begun_, {}));
}

} // namespace companion

#include "tools/companion/Outbox.h"

#include <cerrno>
#include <string_view>
#include <sys/socket.h>
#include <utility>

namespace companion {

void Outbox::add(std::string line) {
    size_ += line.size();
    lines_.push_back(std::move(line));
}

int Outbox::writeFirst(int socket) {
    const std::string& line = lines_.front();
    const std::string_view rest = std::string_view(line).substr(sentOfFirst_);
    const ssize_t count = ::send(socket, rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0)
        return errno == EINTR ? 0 : errno;
    sentOfFirst_ += static_cast<std::size_t>(count);
    if (sentOfFirst_ == line.size()) {
        size_ -= line.size();
        lines_.pop_front();
        sentOfFirst_ = 0;
    }
    return 0;
}

} // namespace companion

#include "tools/companion/Input.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <unistd.h>
#include <utility>

namespace companion {

namespace {

constexpr std::size_t inputReadSize = std::size_t{64} * 1024;

} // namespace

int Input::serve(sd_event* event) {
    isTerminal_ = ::isatty(STDIN_FILENO) == 1; // isatty() fails once the terminal is closed
    const int result =
        sd_event_add_io(event, process::Out(source_), STDIN_FILENO, EPOLLIN, readPollable, this);
    if (result != -EPERM)
        return result;
    // A regular file cannot be polled: it is always ready.
    if (const int added = sd_event_add_defer(event, process::Out(source_), readFile, this);
        added < 0)
        return added;
    return sd_event_source_set_enabled(source_.get(), SD_EVENT_ON);
}

void Input::setPaused(bool isPaused) {
    if (!isStopped_)
        (void)sd_event_source_set_enabled(source_.get(), isPaused ? SD_EVENT_OFF : SD_EVENT_ON);
}

void Input::stop() {
    isStopped_ = true;
    source_.reset();
}

int Input::readPollable(sd_event_source*, int, std::uint32_t events, void* self) noexcept {
    static_cast<Input*>(self)->readSome((events & EPOLLHUP) != 0);
    return 0;
}

int Input::readFile(sd_event_source*, void* self) noexcept {
    static_cast<Input*>(self)->readSome(false);
    return 0;
}

void Input::readSome(bool isHungUp) {
    std::array<char, inputReadSize> buffer{};
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count > 0)
        take({buffer.data(), static_cast<std::size_t>(count)});
    else if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    else if (count < 0 ? errno == EIO : isHungUp && isTerminal_)
        observer_.terminalClosed();
    else
        end();
}

void Input::take(std::string_view bytes) {
    std::size_t lineEnd = 0;
    while (!isStopped_ && (lineEnd = bytes.find('\n')) != std::string_view::npos) {
        const std::string line = std::exchange(unfinishedLine_, {}).append(bytes, 0, lineEnd);
        bytes.remove_prefix(lineEnd + 1);
        observer_.lineEntered(line);
    }
    unfinishedLine_ += bytes;
}

void Input::end() {
    if (!unfinishedLine_.empty())
        observer_.lineEntered(std::exchange(unfinishedLine_, {}));
    if (!isStopped_)
        observer_.inputEnded();
}

} // namespace companion

#include "bench/AnnouncingCompanion.h"

#include "bench/SystemCall.h"

#include <array>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace findersync::bench {

namespace {

constexpr std::size_t readSize = 1024; ///< of the extension: no message may be cut by one

} // namespace

AnnouncingCompanion::AnnouncingCompanion(const Session& session, int log)
    : extension_(session.extension(listener_.port()),
                 {.output = trace_.writeEnd.get(), .error = log}),
      connection_(listener_.accept()) {
    trace_.writeEnd.reset();
}

void AnnouncingCompanion::send(std::string_view type, const std::string& path) const {
    // Paths of the bench's own hold nothing that JSON would have to escape.
    std::string message = R"({"type":")" + std::string(type) + R"(","path":")" + path + "\"}";
    message.resize(readSize - 1, ' ');
    message += '\n';
    const auto sent =
        checked(::send(connection_.get(), message.data(), message.size(), MSG_NOSIGNAL), "send");
    if (static_cast<std::size_t>(sent) != message.size())
        throw std::runtime_error("a message was not sent whole");
}

void AnnouncingCompanion::waitForMessages(std::size_t count) const {
    std::string trace;
    std::size_t begin = 0;
    while (count > 0) {
        std::array<char, 4096> buffer{};
        const auto got =
            checked(::read(trace_.readEnd.get(), buffer.data(), buffer.size()), "read");
        if (got == 0)
            throw std::runtime_error("the extension has ended");
        trace.append(buffer.data(), static_cast<std::size_t>(got));
        for (auto end = trace.find('\n', begin); end != std::string::npos;
             end = trace.find('\n', begin)) {
            if (std::string_view(trace).substr(begin).starts_with("type - ") && --count == 0)
                return;
            begin = end + 1;
        }
    }
}

} // namespace findersync::bench

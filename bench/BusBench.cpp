// bus-bench CALLS badge|menu URL: round trips over the session bus to the extension and to the
// empty program, in turn. Prints the microseconds of each pair, the empty program's first. Each
// round trip lasts from the making of the call to the end of reading its answer. The answers must
// be the same every time; the last line is that answer.

#include "Names.h"
#include "process/SystemdHandles.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

using process::Message;
using process::Out;

constexpr std::uint64_t timeoutInMicroseconds = 10'000'000;

int require(int result) {
    if (result < 0)
        throw std::runtime_error(std::string("a call over the bus failed: ") +
                                 std::strerror(-result));
    return result;
}

struct Caller {
    process::Bus bus;
    std::string url;

    [[nodiscard]] Message newCall(const std::string& service, const char* method) const {
        Message message;
        require(sd_bus_message_new_method_call(bus.get(), Out(message), service.c_str(),
                                               findersync::objectPath, findersync::interfaceName,
                                               method));
        return message;
    }

    [[nodiscard]] Message reply(const Message& call) const {
        Message reply;
        require(sd_bus_call(bus.get(), call.get(), timeoutInMicroseconds, nullptr, Out(reply)));
        return reply;
    }

    [[nodiscard]] std::string badge(const std::string& service) const {
        const Message call = newCall(service, "RequestBadgeIdentifierForURL");
        require(sd_bus_message_append_basic(call.get(), 's', url.c_str()));
        const Message answer = reply(call);
        const char* badge = nullptr;
        require(sd_bus_message_read_basic(answer.get(), 's', &badge));
        return badge;
    }

    [[nodiscard]] std::string menu(const std::string& service) const {
        const Message call = newCall(service, "MenuForMenuKind");
        require(sd_bus_message_append(call.get(), "uas", 0, 1, url.c_str()));
        const Message answer = reply(call);
        int isOffered = 0;
        require(sd_bus_message_read_basic(answer.get(), 'b', &isOffered));
        require(sd_bus_message_enter_container(answer.get(), 'a', "(sss)"));
        std::string entries;
        const char* title = nullptr;
        const char* action = nullptr;
        const char* image = nullptr;
        while (require(sd_bus_message_read(answer.get(), "(sss)", &title, &action, &image)) > 0)
            entries.append(title).append("|").append(action).append("|").append(image).append("|");
        return entries;
    }
};

/// Microseconds of one round trip.
template <typename Call> double measure(const Call& call, std::string& answer) {
    const auto begin = std::chrono::steady_clock::now();
    const std::string given = call();
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - begin;
    if (answer == "?")
        answer = given;
    if (given != answer)
        throw std::runtime_error("the answers differ: " + answer + " and " + given);
    return time.count();
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        throw std::invalid_argument("usage: bus-bench CALLS badge|menu URL");
    Caller caller{.bus = {}, .url = argv[3]};
    require(sd_bus_open_user(Out(caller.bus)));
    const auto ask = std::string_view(argv[2]) == "menu" ? &Caller::menu : &Caller::badge;
    const std::string emptyProgram = std::string(findersync::applicationGroup) + ".EmptyProgram";
    const std::string extension = findersync::busName;
    std::string answer = "?";
    for (int left = std::stoi(argv[1]); left > 0; --left) {
        const double bare = measure([&] { return (caller.*ask)(emptyProgram); }, answer);
        const double real = measure([&] { return (caller.*ask)(extension); }, answer);
        std::printf("%.3f %.3f\n", bare, real);
    }
    std::printf("%s\n", answer.c_str());
    return EXIT_SUCCESS;
}

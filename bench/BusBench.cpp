// bus-bench CALLS badge|menu URL: round trips over the session bus to the extension and to the
// empty program, in turn. Prints the microseconds of each pair, the empty program's first. Each
// round trip lasts from the making of the call to the end of reading its answer. The answers must
// be the same every time; the last line is that answer.
//
// bus-bench CALLS badges: the same for one call that asks for the badges of many items. The time of
// the empty program includes comparing each item with each root folder. Standard input holds the
// paths of the items, an empty line, and the paths of the root folders, one on a line.

#include "Names.h"
#include "platform/text/FileURL.h"
#include "platform/text/Unicode.h"
#include "process/SystemdHandles.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

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

std::vector<std::string> readLines() {
    std::vector<std::string> lines;
    for (std::string line; std::getline(std::cin, line) && !line.empty();)
        lines.push_back(line);
    return lines;
}

void append(const Message& message, const std::vector<std::string>& texts) {
    require(sd_bus_message_open_container(message.get(), 'a', "s"));
    for (const std::string& text : texts)
        require(sd_bus_message_append_basic(message.get(), 's', text.c_str()));
    require(sd_bus_message_close_container(message.get()));
}

struct Caller {
    process::Bus bus;
    std::string url;
    std::vector<std::string> items; ///< paths
    std::vector<std::string> urls;  ///< of the items
    std::vector<std::string> roots; ///< paths

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

    /// The number of items, and of those with a badge.
    [[nodiscard]] std::string badges(const std::string& service) const {
        const Message call = newCall(service, "RequestBadgeIdentifiersForURLs");
        append(call, urls);
        const Message answer = reply(call);
        require(sd_bus_message_enter_container(answer.get(), 'a', "s"));
        std::size_t count = 0;
        std::size_t badgeCount = 0;
        const char* badge = nullptr;
        for (; require(sd_bus_message_read_basic(answer.get(), 's', &badge)) > 0; ++count)
            badgeCount += *badge == '\0' ? 0U : 1U;
        if (service == findersync::busName)
            return std::to_string(count) + " " + std::to_string(badgeCount);
        for (const std::string& item : items)
            badgeCount +=
                static_cast<std::size_t>(std::ranges::count_if(roots, [&](const auto& root) {
                    return platform::text::areCanonicallyEquivalent(root, item);
                }));
        return std::to_string(count) + " " + std::to_string(badgeCount);
    }

    void announceRoots() const {
        Message call;
        require(sd_bus_message_new_method_call(bus.get(), Out(call), findersync::busName,
                                               findersync::objectPath,
                                               "org.freedesktop.DBus.Properties", "Set"));
        require(sd_bus_message_append(call.get(), "ss", findersync::interfaceName,
                                      "pathsOfRootFolders"));
        require(sd_bus_message_open_container(call.get(), 'v', "as"));
        append(call, roots);
        require(sd_bus_message_close_container(call.get()));
        (void)reply(call);
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
    const std::string_view what = argc > 2 ? argv[2] : "";
    if (argc != (what == "badges" ? 3 : 4))
        throw std::invalid_argument("usage: bus-bench CALLS badge|menu URL, or CALLS badges");
    Caller caller;
    require(sd_bus_open_user(Out(caller.bus)));
    auto ask = what == "menu" ? &Caller::menu : &Caller::badge;
    if (what == "badges") {
        caller.items = readLines();
        std::ranges::transform(caller.items, std::back_inserter(caller.urls),
                               platform::text::fileURLFromPath);
        caller.roots = readLines();
        caller.announceRoots();
        ask = &Caller::badges;
    } else {
        caller.url = argv[3];
    }
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

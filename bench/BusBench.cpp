// bus-bench CALLS badge|badges|menu|roots|all: round trips over the session bus to the extension
// and to the empty program, in turn. Prints the microseconds of each pair, the empty program's
// first. Each round trip lasts from the making of the call to the end of reading its answer. The
// answers must be the same every time; the last line is that answer.
//
// Standard input holds the paths of items, an empty line, and the paths of the root folders, one on
// a line. All but "badges" ask about the first item. With "badges", the time of the empty program
// includes comparing each item with each root folder. "roots" is Get of the root folders and "all"
// is GetAll, beside the empty program's badge.

#include "Names.h"
#include "platform/text/FileURL.h"
#include "platform/text/Unicode.h"
#include "process/SystemdHandles.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using process::Message;
using process::Out;

constexpr std::uint64_t timeoutInMicroseconds = 60'000'000;
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* rootFolders = "pathsOfRootFolders";

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
    std::vector<std::string> items; ///< paths
    std::vector<std::string> urls;  ///< of the items
    std::vector<std::string> roots; ///< paths

    [[nodiscard]] Message newCall(const std::string& service, const char* method,
                                  const char* interface = findersync::interfaceName) const {
        Message message;
        require(sd_bus_message_new_method_call(bus.get(), Out(message), service.c_str(),
                                               findersync::objectPath, interface, method));
        return message;
    }

    [[nodiscard]] Message reply(const Message& call) const {
        Message reply;
        require(sd_bus_call(bus.get(), call.get(), timeoutInMicroseconds, nullptr, Out(reply)));
        return reply;
    }

    [[nodiscard]] std::string badge(const std::string& service) const {
        const Message call = newCall(service, "RequestBadgeIdentifierForURL");
        require(sd_bus_message_append_basic(call.get(), 's', urls.front().c_str()));
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
        const Message call = newCall(findersync::busName, "Set", properties);
        require(sd_bus_message_append(call.get(), "ss", findersync::interfaceName, rootFolders));
        require(sd_bus_message_open_container(call.get(), 'v', "as"));
        append(call, roots);
        require(sd_bus_message_close_container(call.get()));
        (void)reply(call);
    }

    [[nodiscard]] std::string rootsOf(const std::string& service) const {
        if (service != findersync::busName)
            return badge(service);
        const Message call = newCall(service, "Get", properties);
        require(sd_bus_message_append(call.get(), "ss", findersync::interfaceName, rootFolders));
        require(sd_bus_message_skip(reply(call).get(), "v"));
        return "";
    }

    [[nodiscard]] std::string allOf(const std::string& service) const {
        if (service != findersync::busName)
            return badge(service);
        const Message call = newCall(service, "GetAll", properties);
        require(sd_bus_message_append(call.get(), "s", findersync::interfaceName));
        require(sd_bus_message_skip(reply(call).get(), "a{sv}"));
        return "";
    }

    [[nodiscard]] std::string menu(const std::string& service) const {
        const Message call = newCall(service, "MenuForMenuKind");
        require(sd_bus_message_append(call.get(), "uas", 0, 1, urls.front().c_str()));
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
    const std::map<std::string, std::string (Caller::*)(const std::string&) const> calls{
        {"badge", &Caller::badge},
        {"badges", &Caller::badges},
        {"menu", &Caller::menu},
        {"roots", &Caller::rootsOf},
        {"all", &Caller::allOf}};
    if (argc != 3)
        throw std::invalid_argument("usage: bus-bench CALLS badge|badges|menu|roots|all");
    const auto ask = calls.at(argv[2]);
    Caller caller;
    require(sd_bus_open_user(Out(caller.bus)));
    caller.items = readLines();
    std::ranges::transform(caller.items, std::back_inserter(caller.urls),
                           platform::text::fileURLFromPath);
    caller.roots = readLines();
    caller.announceRoots();
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

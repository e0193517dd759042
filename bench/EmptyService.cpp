// empty-service PORT BADGE: what calls of the extension over the bus are compared with. Methods of
// the same signatures, served by the same library, that give constant answers of the same size. It
// connects to the port as soon as it can be called.

#include "bench/BusAnswers.h"
#include "bench/Loopback.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

namespace {

using findersync::bench::MenuEntry;

void require(int result, const char* failure) {
    if (result < 0)
        throw std::runtime_error(failure);
}

int giveBadge(sd_bus_message* call, void* badge, sd_bus_error*) noexcept {
    const char* url = nullptr;
    if (const int result = sd_bus_message_read_basic(call, 's', &url); result < 0)
        return result;
    return sd_bus_reply_method_return(call, "s", static_cast<const char*>(badge));
}

int giveMenu(sd_bus_message* call, void*, sd_bus_error*) noexcept {
    const auto& [first, second] = findersync::bench::menuEntries;
    if (const int result = sd_bus_message_skip(call, "uas"); result < 0)
        return result;
    return sd_bus_reply_method_return(call, "ba(sss)", 1, 2, first.title, first.action, first.image,
                                      second.title, second.action, second.image);
}

const sd_bus_vtable vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("RequestBadgeIdentifierForURL", "s", "s", giveBadge, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("MenuForMenuKind", "uas", "ba(sss)", giveMenu, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

void run(int argc, char** argv) {
    if (argc != 3)
        throw std::invalid_argument("usage: empty-service PORT BADGE");
    (void)std::signal(SIGTERM, [](int) { ::_exit(EXIT_SUCCESS); });

    sd_bus* bus = nullptr;
    sd_event* event = nullptr;
    require(sd_bus_open_user(&bus), "no session bus");
    require(sd_event_default(&event), "no event loop");
    require(sd_bus_request_name(bus, FINDER_SYNC_GROUP ".EmptyService", 0),
            "the bus name cannot be had");
    require(sd_bus_add_object_vtable(bus, nullptr, "/FinderSync", "findersync.Extension1", vtable,
                                     argv[2]),
            "the object cannot be put onto the bus");
    require(sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL), "the bus cannot be served");
    const auto connection =
        findersync::bench::connectToLoopback(findersync::bench::portFromText(argv[1]));
    require(sd_event_loop(event), "the event loop has failed");
}

} // namespace

int main(int argc, char** argv) {
    try {
        run(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "empty-service: %s\n", error.what());
    }
    return EXIT_FAILURE;
}

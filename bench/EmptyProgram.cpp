// empty-program PORT [BADGE]: what the extension's start-up, memory and D-Bus calls are compared
// with. It is linked with the same libraries, takes a name on the session bus, connects to the
// port, and waits until that connection ends.
//
// With BADGE, it serves methods of the extension's signatures meanwhile: constant answers of the
// same size, sent by the same library. It connects as soon as it can be called.

#include "Names.h"
#include "bench/SystemCalls.h"
#include "process/SystemdHandles.h"

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

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

/// As many answers as there are items.
int giveBadges(sd_bus_message* call, void* badge, sd_bus_error*) noexcept {
    process::Message answer;
    int result = sd_bus_message_new_method_return(call, process::Out(answer));
    if (result >= 0)
        result = sd_bus_message_enter_container(call, 'a', "s");
    if (result >= 0)
        result = sd_bus_message_open_container(answer.get(), 'a', "s");
    for (const char* url = nullptr;
         result >= 0 && (result = sd_bus_message_read_basic(call, 's', &url)) > 0;)
        result = sd_bus_message_append_basic(answer.get(), 's', badge);
    if (result >= 0)
        result = sd_bus_message_close_container(answer.get());
    return result < 0 ? result : sd_bus_send(nullptr, answer.get(), nullptr);
}

int giveMenu(sd_bus_message* call, void*, sd_bus_error*) noexcept {
    if (const int result = sd_bus_message_skip(call, "uas"); result < 0)
        return result;
    return sd_bus_reply_method_return(call, "ba(sss)", 1, 2, "Share by link",
                                      "createLinkClicked:", "icon_URLlink", "Back up",
                                      "backupClicked:", "icon_Backup");
}

const sd_bus_vtable vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("RequestBadgeIdentifierForURL", "s", "s", giveBadge, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RequestBadgeIdentifiersForURLs", "as", "as", giveBadges,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("MenuForMenuKind", "uas", "ba(sss)", giveMenu, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

void serve(sd_bus* bus, char* badge, const char* port) {
    process::EventLoop event;
    require(sd_event_default(process::Out(event)), "no event loop");
    require(sd_bus_add_object_vtable(bus, nullptr, findersync::objectPath,
                                     findersync::interfaceName, vtable, badge),
            "the object cannot be put on the bus");
    require(sd_bus_set_exit_on_disconnect(bus, 1), "the end of the bus cannot be watched");
    require(sd_bus_attach_event(bus, event.get(), SD_EVENT_PRIORITY_NORMAL),
            "the bus cannot be served");
    findersync::bench::connectToLoopback(port);
    require(sd_event_loop(event.get()), "the event loop has failed");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3)
        throw std::invalid_argument("usage: empty-program PORT [BADGE]");
    (void)std::signal(SIGTERM, [](int) { ::_exit(EXIT_SUCCESS); });
    const std::string name = std::string(findersync::applicationGroup) + ".EmptyProgram";
    process::Bus bus;
    require(sd_bus_open_user(process::Out(bus)), "no session bus");
    require(sd_bus_request_name(bus.get(), name.c_str(), 0), "the bus name cannot be had");
    if (argc == 3) {
        serve(bus.get(), argv[2], argv[1]);
    } else {
        char byte = 0;
        (void)::recv(findersync::bench::connectToLoopback(argv[1]), &byte, sizeof byte, 0);
    }
    return EXIT_SUCCESS;
}

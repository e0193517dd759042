#include "hosts/linux/ProcessService.h"

#include "Names.h"

#include <csignal>

namespace hosts::linux_host {

namespace {

const char* textOf(LinkState state) {
    switch (state) {
    case LinkState::NeverTried:
        return "never tried";
    case LinkState::Connecting:
        return "connecting";
    case LinkState::Open:
        return "open";
    case LinkState::Refused:
        return "refused";
    case LinkState::Ended:
        break;
    }
    return "ended";
}

int quit(sd_bus_message* call, void*, sd_bus_error*) {
    const int result = sd_bus_reply_method_return(call, nullptr);
    (void)std::raise(SIGTERM); // it ends the process even if a write blocks
    return result;
}

int getLinkState(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self,
                 sd_bus_error*) {
    const auto& extension = *static_cast<const ObservedFinderSync*>(self);
    return sd_bus_message_append_basic(reply, 's', textOf(extension.linkState()));
}

const sd_bus_vtable processMembers[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Quit", "", "", quit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("linkState", "s", getLinkState, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

} // namespace

int ProcessService::publish() {
    const int result =
        sd_bus_add_object_vtable(bus_, process::Out(slot_), findersync::objectPath,
                                 findersync::processInterfaceName, processMembers, &extension_);
    // The state changes a few times in the life of a process, so no queue grows.
    if (result >= 0)
        extension_.setLinkObserver([this] {
            (void)sd_bus_emit_properties_changed(bus_, findersync::objectPath,
                                                 findersync::processInterfaceName, "linkState",
                                                 nullptr);
        });
    return result;
}

} // namespace hosts::linux_host

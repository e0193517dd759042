#pragma once

#include "hosts/linux/Marshalling.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "hosts/linux/PropertyChanges.h"
#include "hosts/linux/QueuedReplies.h"
#include "platform/linux/FinderSyncController.h"
#include "process/SystemdHandles.h"

#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <vector>

namespace hosts::linux_host {

/// The object /FinderSync on the bus: passes the calls of the interface findersync.Extension1 on to
/// the extension. The contract is hosts/linux/findersync.Extension1.xml.
///
/// Everything runs on the thread of the bus connection's event loop. Arguments are checked here:
/// what the Finder would never pass on does not reach the extension, and the caller gets an error.
class ExtensionService {
public:
    /// None of the arguments is owned; they outlive the service. The bus is attached to an event
    /// loop already.
    ExtensionService(sd_bus* bus, ObservedFinderSync& extension,
                     platform::linux_backend::FinderSyncController& controller);
    ~ExtensionService();
    ExtensionService(const ExtensionService&) = delete;
    ExtensionService& operator=(const ExtensionService&) = delete;

    /// Puts the object onto the bus. Gives 0, or a negative errno.
    [[nodiscard]] int publish();

private:
    struct Callbacks; ///< what sd-bus calls
    friend struct Callbacks;

    int beginObserving(sd_bus_message* call, sd_bus_error* error);
    int endObserving(sd_bus_message* call, sd_bus_error* error);
    int requestBadge(sd_bus_message* call, sd_bus_error* error);
    int requestBadges(sd_bus_message* call, sd_bus_error* error);
    int provideMenu(sd_bus_message* call, sd_bus_error* error);
    int performAction(sd_bus_message* call, sd_bus_error* error);
    [[nodiscard]] std::string badgeFor(const platform::NSURL& url);
    [[nodiscard]] std::vector<std::string> watchedDirectories() const;
    [[nodiscard]] bool isWatched(const platform::NSURL& url) const;

    template <typename... Values> int reply(sd_bus_message* call, const Values&... values);
    template <typename Value> int appendValue(sd_bus_message* reply, const Value& value);
    int appendProperty(sd_bus_message* reply, std::string_view name);
    int setProperty(sd_bus_message* value, std::string_view name, sd_bus_error* error);

    sd_bus* bus_;
    ObservedFinderSync& extension_;
    platform::linux_backend::FinderSyncController& controller_;
    PropertyChanges changes_;
    QueuedReplies replies_;
    process::Slot filterSlot_;
    process::Slot objectSlot_;
};

} // namespace hosts::linux_host

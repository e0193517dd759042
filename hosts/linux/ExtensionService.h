#pragma once

#include "hosts/linux/ObservedFinderSync.h"
#include "platform/linux/FinderSyncController.h"

#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <vector>

namespace findersync {

/// The object /FinderSync on the bus: hands the interface findersync.Extension1 on to the
/// extension. The contract is hosts/linux/findersync.Extension1.xml.
///
/// Everything runs on the thread of the bus connection's event loop. Arguments are checked here:
/// what the Finder would never pass on does not reach the extension, the caller gets an error.
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
    struct Callbacks; ///< sd-bus's view of this object
    friend struct Callbacks;

    int callWithURL(sd_bus_message* call, std::string_view selector, sd_bus_error* error);
    int requestBadge(sd_bus_message* call, sd_bus_error* error);
    int requestBadges(sd_bus_message* call, sd_bus_error* error);
    int provideMenu(sd_bus_message* call, sd_bus_error* error);
    int performAction(sd_bus_message* call, sd_bus_error* error);
    [[nodiscard]] std::string badgeFor(const platform::NSURL& url);
    [[nodiscard]] bool isWatched(const platform::NSURL& url) const;

    int appendProperty(sd_bus_message* reply, std::string_view name) const;
    int setProperty(sd_bus_message* value, std::string_view name, sd_bus_error* error);
    int appendDirectoryURLs(sd_bus_message* reply) const;
    int appendBadges(sd_bus_message* reply) const;

    void noteChange(std::string_view property);
    int signalChanges();

    sd_bus* bus_;
    ObservedFinderSync& extension_;
    platform::linux_backend::FinderSyncController& controller_;
    sd_bus_slot* slot_ = nullptr;
    sd_bus_slot* filterSlot_ = nullptr;
    sd_event_source* signalSource_ = nullptr; ///< fires at the end of a turn that changed something
    sd_event_source* laterSignalSource_ = nullptr; ///< fires when the bus has had time to read
    std::vector<std::string> changed_;             ///< names of the properties to signal, each once
};

} // namespace findersync

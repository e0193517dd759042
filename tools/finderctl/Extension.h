#pragma once

#include <memory>
#include <string>
#include <systemd/sd-bus.h>

namespace finderctl {

/// Lets go of a reference to a bus, a message or a slot.
struct Release {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, Release>;

/// The running extension, on the session bus. Nothing here starts it when it is not running.
class Extension {
public:
    static constexpr const char* busName = FINDER_SYNC_GROUP ".FinderSync";
    static constexpr const char* objectPath = "/FinderSync";
    static constexpr const char* interfaceName = "findersync.Extension1";
    static constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

    /// Connects to the session bus. Throws `Failure` when there is none, or when it has not
    /// answered after 5 seconds.
    Extension();

    [[nodiscard]] sd_bus* bus() const { return bus_.get(); }

    /// A call of one of the extension's own methods, to be given its arguments.
    [[nodiscard]] Message newCall(const char* member) const;
    [[nodiscard]] Message newCall(const char* interface, const char* member) const;

    /// Makes the call and waits for the answer, for at most 5 seconds. Throws `Refused` when the
    /// extension refuses it, and another `Failure` when it is not running or does not answer.
    [[nodiscard]] Message call(const Message& message) const;

private:
    std::unique_ptr<sd_bus, Release> bus_;
};

/// Throws `Failure` for a negative errno.
void check(int result, const char* whatFailed);

} // namespace finderctl

#pragma once

#include "Names.h"
#include "process/SystemdHandles.h"

#include <string>
#include <vector>

namespace finderctl {

inline constexpr const char* busDriver = "org.freedesktop.DBus";
inline constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
/// The property that GetAll leaves out, and whose changes are signalled without the value.
inline constexpr const char* rootFolders = "pathsOfRootFolders";

/// Stands for the running extension of a product, which it reaches over the session bus. Nothing
/// but `start` starts the extension when it is not running.
class ExtensionProxy {
public:
    /// Connects to the session bus. Throws `Failure` when there is none, or when it has not
    /// answered after 5 seconds.
    explicit ExtensionProxy(std::string busName);

    [[nodiscard]] sd_bus* bus() const { return bus_.get(); }
    /// The extension's name on the bus.
    [[nodiscard]] const std::string& name() const { return name_; }

    /// A call to one of the extension's methods, still without arguments.
    [[nodiscard]] process::Message newCall(const char* member,
                                           const char* interface = findersync::interfaceName) const;

    /// A call to one of the bus's own methods, still without arguments.
    [[nodiscard]] process::Message newCallOfBus(const char* member) const;

    /// Makes the call and waits for the reply, for at most 5 seconds. Throws `Refused` when the
    /// extension refuses it, and another `Failure` when it is not running or does not reply.
    [[nodiscard]] process::Message call(const process::Message& message) const;

    /// Whether anybody owns the extension's name on the bus.
    [[nodiscard]] bool isRunning() const;

    /// Has the bus start the extension, and waits for it, for at most 5 seconds. Does nothing when
    /// it is running. Throws `Failure` when it does not come.
    void start() const;

    /// A call that gets a property of the running extension; its reply is a variant.
    [[nodiscard]] process::Message newGet(const char* interface, const char* property) const;

    /// Properties of the running extension. Throw `Failure`.
    [[nodiscard]] unsigned serverPort() const;
    [[nodiscard]] std::string linkState() const;

private:
    std::string name_;
    process::Bus bus_;
};

/// What `check` is told where an answer is read.
inline constexpr const char* replyFailed = "the answer cannot be read";

/// Throws `Failure` for a negative errno.
void check(int result, const char* whatFailed);

/// Appends a list of strings, "as", to a call. Throws `Failure`.
void appendList(const process::Message& call, const std::vector<std::string>& list);

/// Reads a list of strings, "as", from a message. Throws `Failure`.
[[nodiscard]] std::vector<std::string> readList(sd_bus_message* message);

} // namespace finderctl

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <sys/types.h>
#include <systemd/sd-bus.h>
#include <variant>
#include <vector>

namespace findersync::bench {

/// Calls services on the session bus that have the extension's interface. Whatever service it is,
/// it is called by this very code. Throws when a call is not answered as it should be.
class BusCaller {
public:
    /// What a service answers: one text for a badge; for a menu, the texts of all its entries.
    using Answer = std::vector<std::string>;

    BusCaller();

    /// The process of the bus daemon.
    [[nodiscard]] pid_t daemon() const;

    [[nodiscard]] Answer requestBadge(const std::string& service, const std::string& url) const;
    [[nodiscard]] Answer menu(const std::string& service, const std::string& url) const;

    /// Sets a property: a text, an integer, or a list of texts.
    using Value = std::variant<std::string, std::int64_t, std::vector<std::string>>;
    void setProperty(const std::string& service, const char* name, const Value& value) const;

private:
    struct Close {
        void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    };
    struct Release {
        void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
    };
    using Message = std::unique_ptr<sd_bus_message, Release>;

    [[nodiscard]] Message newCall(const std::string& service, const char* interface,
                                  const char* method) const;
    [[nodiscard]] Message call(const Message& request) const;

    std::unique_ptr<sd_bus, Close> bus_;
};

} // namespace findersync::bench

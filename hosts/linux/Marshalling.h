#pragma once

// Values in D-Bus messages, with the limits of what is taken and given. Every function gives a
// negative errno on failure, as sd-bus does; the caller then gets an error reply.

#include "extension/FinderSync.h"
#include "platform/AppKit.h"
#include "platform/linux/FinderSyncController.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <systemd/sd-bus.h>
#include <vector>

namespace hosts::linux_host {

using URL = findersync::FinderSync::URL;

/// Bytes that a text in a list takes beside its own.
inline constexpr std::size_t textOverhead = 8;

/// Appends values to a message, and counts their bytes. A list of more than 32 MiB fails with
/// ENOBUFS.
class MessageWriter {
public:
    /// The message is not owned.
    explicit MessageWriter(sd_bus_message* message) : message_(message) {}

    int append(const std::string& text);
    int append(const URL& url) { return append(url->description()); }
    int append(std::uint32_t number) { return appendBasic('u', &number); }
    int append(std::int64_t number) { return appendBasic('x', &number); }
    int append(bool value);
    int append(const std::vector<std::string>& list);
    /// Whether there is a menu, and its entries. Null stands for none.
    int append(const platform::NSMenu* menu);
    int
    append(const std::map<std::string, platform::linux_backend::FinderSyncController::Badge>& map);

    /// Bytes of the texts appended so far.
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    int appendBasic(char type, const void* value) {
        return sd_bus_message_append_basic(message_, type, value);
    }
    int appendItem(const platform::NSMenuItem& item);

    sd_bus_message* message_;
    std::size_t size_ = 0;
};

/// Reads the next value of a message. A text or a list of more than 4 MiB fails with ENOBUFS.
int read(sd_bus_message* message, std::string& text);
int read(sd_bus_message* message, std::uint32_t& number);
int read(sd_bus_message* message, std::int64_t& number);
int read(sd_bus_message* message, bool& value);
int read(sd_bus_message* message, std::vector<std::string>& list);

/// Reads file URLs, as strictly as the Finder would. For anything else `error` is set.
int read(sd_bus_message* message, URL& url, sd_bus_error* error);
int read(sd_bus_message* message, std::vector<URL>& urls, sd_bus_error* error);

/// A text as an error message shows it: in quotation marks, or by its size when it is long.
[[nodiscard]] std::string quoted(const std::string& text);

} // namespace hosts::linux_host

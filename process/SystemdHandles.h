#pragma once

// Owning handles for the objects of libsystemd. Each holds one reference, and null for none.

#include <memory>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace process {

struct Unref {
    void operator()(sd_event* event) const { sd_event_unref(event); }
    /// The source is disabled first: the loop itself may hold another reference to it.
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
    /// Sends what is queued first.
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
    void operator()(sd_bus_creds* credentials) const { sd_bus_creds_unref(credentials); }
};

using EventLoop = std::unique_ptr<sd_event, Unref>;
using EventSource = std::unique_ptr<sd_event_source, Unref>;
using Bus = std::unique_ptr<sd_bus, Unref>;
using Message = std::unique_ptr<sd_bus_message, Unref>;
using Slot = std::unique_ptr<sd_bus_slot, Unref>;
using Credentials = std::unique_ptr<sd_bus_creds, Unref>;

/// Where a function of libsystemd is to put the object that it makes:
/// `sd_bus_open_user(Out(bus))`. The handle has the object once the whole expression that holds the
/// call is evaluated. C++23 has std::out_ptr for this.
template <typename T> class Out {
public:
    explicit Out(std::unique_ptr<T, Unref>& handle) : handle_(handle) {}
    ~Out() { handle_.reset(object_); }
    Out(const Out&) = delete;
    Out& operator=(const Out&) = delete;

    operator T**() { return &object_; } // NOLINT(google-explicit-constructor)

private:
    std::unique_ptr<T, Unref>& handle_;
    T* object_ = nullptr;
};

} // namespace process

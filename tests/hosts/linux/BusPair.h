#pragma once

#include "Names.h"
#include "platform/linux/RunLoop.h"
#include "process/SystemdHandles.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <systemd/sd-id128.h>

namespace tests {

inline void require(int result) {
    if (result < 0)
        throw std::runtime_error("sd-bus gives " + std::to_string(result));
}

/// A connection without a daemon, both of whose ends are served by the run loop of this thread.
class BusPair {
public:
    BusPair() {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
        require(sd_bus_new(process::Out(service)));
        sd_id128_t server{};
        require(sd_id128_randomize(&server));
        require(sd_bus_set_server(service.get(), 1, server));
        require(sd_bus_new(process::Out(caller)));
        open(service, ends[0]);
        open(caller, ends[1]);
    }

    [[nodiscard]] process::Message newCall(const char* interface, const char* member) const {
        process::Message call;
        require(sd_bus_message_new_method_call(caller.get(), process::Out(call), nullptr,
                                               findersync::objectPath, interface, member));
        return call;
    }

    /// Waits without a timeout.
    [[nodiscard]] process::Message answer(const process::Message& call) const {
        process::Message received;
        const auto receive = [](sd_bus_message* reply, void* place, sd_bus_error*) {
            static_cast<process::Message*>(place)->reset(sd_bus_message_ref(reply));
            return 0;
        };
        require(
            sd_bus_call_async(caller.get(), nullptr, call.get(), receive, &received, UINT64_MAX));
        while (!received)
            require(sd_event_run(loop(), UINT64_MAX));
        return received;
    }

    static sd_event* loop() { return platform::linux_backend::runLoopOfThisThread().event(); }

    process::Bus service;
    process::Bus caller;

private:
    static void open(const process::Bus& bus, int end) {
        require(sd_bus_set_fd(bus.get(), end, end));
        require(sd_bus_set_anonymous(bus.get(), 1));
        require(sd_bus_start(bus.get()));
        require(sd_bus_attach_event(bus.get(), loop(), SD_EVENT_PRIORITY_NORMAL));
    }
};

} // namespace tests

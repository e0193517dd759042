#include "hosts/linux/PropertyChanges.h"

#include "Names.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace hosts::linux_host {

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::microseconds retryInterval = 10ms;

} // namespace

int PropertyChanges::start() {
    const auto onEndOfTurn = [](sd_event_source*, void* self) noexcept {
        return static_cast<PropertyChanges*>(self)->signal();
    };
    const int result =
        sd_event_add_defer(sd_bus_get_event(bus_), process::Out(endOfTurn_), onEndOfTurn, this);
    return result < 0 ? result : sd_event_source_set_enabled(endOfTurn_.get(), SD_EVENT_OFF);
}

void PropertyChanges::note(std::string_view property) {
    if (std::ranges::find(names_, property) == names_.end())
        names_.emplace_back(property);
    (void)sd_event_source_set_enabled(endOfTurn_.get(), SD_EVENT_ONESHOT);
}

int PropertyChanges::signal() {
    retry_.reset();
    std::uint64_t queued = 0;
    (void)sd_bus_get_n_queued_write(bus_, &queued);
    if (queued > 0) // or one signal after the other would join the queue
        return signalLater();
    std::vector<char*> names;
    names.reserve(names_.size() + 1);
    for (std::string& name : names_)
        names.push_back(name.data());
    names.push_back(nullptr);
    // A signal that cannot be sent is not fatal: whoever reads a property still gets its value.
    (void)sd_bus_emit_properties_changed_strv(bus_, findersync::objectPath,
                                              findersync::interfaceName, names.data());
    names_.clear();
    return 0;
}

int PropertyChanges::signalLater() {
    const auto onTime = [](sd_event_source*, std::uint64_t, void* self) noexcept {
        return static_cast<PropertyChanges*>(self)->signal();
    };
    return sd_event_add_time_relative(sd_bus_get_event(bus_), process::Out(retry_), CLOCK_MONOTONIC,
                                      static_cast<std::uint64_t>(retryInterval.count()), 0, onTime,
                                      this);
}

} // namespace hosts::linux_host

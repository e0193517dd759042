#include "hosts/linux/PropertyChanges.h"

#include "Names.h"
#include "extension/PublishedInterface.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace hosts::linux_host {

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::microseconds interval = 50ms;
constexpr std::chrono::microseconds accuracy = 1us; // sd-event would take up to 250 ms otherwise

} // namespace

int PropertyChanges::start() {
    // Or the heap would depend on how many changes come at a time.
    names_.reserve(findersync::publishedProperties().size());
    const auto onTime = [](sd_event_source*, std::uint64_t, void* self) noexcept {
        static_cast<PropertyChanges*>(self)->signal();
        return 0;
    };
    const int result = sd_event_add_time(sd_bus_get_event(bus_), process::Out(timer_),
                                         CLOCK_MONOTONIC, 0, accuracy.count(), onTime, this);
    return result < 0 ? result : sd_event_source_set_enabled(timer_.get(), SD_EVENT_OFF);
}

void PropertyChanges::note(std::string_view property) {
    if (std::ranges::find(names_, property) == names_.end())
        names_.emplace_back(property);
    (void)sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT);
}

void PropertyChanges::signal() {
    (void)sd_event_source_set_time_relative(timer_.get(), interval.count());
    std::uint64_t queued = 0;
    (void)sd_bus_get_n_queued_write(bus_, &queued);
    if (queued > 0) { // or one signal after the other would join the queue
        (void)sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT);
        return;
    }
    std::vector<char*> names;
    names.reserve(names_.size() + 1);
    for (std::string& name : names_)
        names.push_back(name.data());
    names.push_back(nullptr);
    // A signal that cannot be sent is not fatal: whoever reads a property still gets its value.
    (void)sd_bus_emit_properties_changed_strv(bus_, findersync::objectPath,
                                              findersync::interfaceName, names.data());
    names_.clear();
}

} // namespace hosts::linux_host

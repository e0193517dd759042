#include "hosts/linux/PropertyChanges.h"

#include "Names.h"
#include "extension/PublishedInterface.h"
#include "hosts/linux/Marshalling.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iterator>

namespace hosts::linux_host {

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::microseconds interval = 50ms;
constexpr std::chrono::microseconds accuracy = 1us; // sd-event would take up to 250 ms otherwise
constexpr std::size_t longestNames = std::size_t{64} * 1024; // bytes, of all in a signal

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

void PropertyChanges::noteRootFolders(const std::vector<std::string>& current,
                                      const std::vector<std::string>& next) {
    // The list grows at its end or loses one path, so that few lie between what stays the same.
    const auto [removed, added] = std::ranges::mismatch(current, next);
    const auto [removedEnd, addedEnd] =
        std::mismatch(current.rbegin(), std::make_reverse_iterator(removed), next.rbegin(),
                      std::make_reverse_iterator(added));
    const auto noteEach = [this](const std::string& path) { noteRootFolder(path); };
    std::for_each(removed, removedEnd.base(), noteEach);
    std::for_each(added, addedEnd.base(), noteEach);
}

/// A folder that is added and removed again is noted as well: somebody may have been told its badge
/// in between.
void PropertyChanges::noteRootFolder(std::string_view path) {
    if (foldersSize_ > longestNames)
        return;
    const auto [name, isNew] = folders_.emplace(path.substr(path.rfind('/') + 1));
    if (isNew)
        foldersSize_ += name->size() + textOverhead;
    if (foldersSize_ > longestNames)
        folders_.clear(); // an empty list stands for any name
}

void PropertyChanges::signal() {
    (void)sd_event_source_set_time_relative(timer_.get(), interval.count());
    std::uint64_t queued = 0;
    (void)sd_bus_get_n_queued_write(bus_, &queued);
    if (queued > 0) { // or one signal after the other would join the queue
        (void)sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT);
        return;
    }
    signalProperties();
    signalRootFolders();
}

void PropertyChanges::signalProperties() {
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

void PropertyChanges::signalRootFolders() {
    if (foldersSize_ == 0)
        return;
    process::Message signal;
    int result = sd_bus_message_new_signal(bus_, process::Out(signal), findersync::objectPath,
                                           findersync::interfaceName, "RootFoldersChanged");
    if (result >= 0)
        result = MessageWriter(signal.get()).append(std::vector(folders_.begin(), folders_.end()));
    if (result >= 0)
        result = sd_bus_send(bus_, signal.get(), nullptr);
    if (result < 0)
        return; // the next signal tells of these too
    folders_.clear();
    foldersSize_ = 0;
}

} // namespace hosts::linux_host

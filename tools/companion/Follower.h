#pragma once

#include "process/Descriptor.h"
#include "process/SystemdHandles.h"

#include <functional>
#include <string>
#include <string_view>

namespace companion {

/// Reads the lines that other programs write to a named pipe.
class Follower {
public:
    /// Called for each line, without its LF.
    using Observer = std::function<void(std::string_view line)>;

    explicit Follower(Observer observer) : observer_(std::move(observer)) {}

    /// Makes the event loop read the pipe from now on, even when one writer closes it and another
    /// one opens it. Returns false on failure; `failure` then says what is wrong.
    [[nodiscard]] bool follow(sd_event* event, const std::string& path, std::string& failure);

private:
    void read();

    Observer observer_;
    process::Descriptor pipe_;
    process::EventSource source_;
    std::string unfinishedLine_;
};

} // namespace companion

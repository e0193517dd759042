#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <systemd/sd-event.h>

namespace companion {

/// Reads the lines that other programs write to a named pipe.
class Follower {
public:
    /// Called for each line, without its LF.
    using Observer = std::function<void(std::string_view line)>;

    explicit Follower(Observer observer) : observer_(std::move(observer)) {}
    ~Follower();
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;

    /// Reads the pipe from now on, whoever writes to it and for as long as the event loop runs. On
    /// failure `failure` says what is wrong, and false is given.
    [[nodiscard]] bool follow(sd_event* event, const std::string& path, std::string& failure);

private:
    void read();

    Observer observer_;
    int descriptor_ = -1;
    sd_event_source* source_ = nullptr;
    std::string begun_; ///< a line whose end has not arrived
};

} // namespace companion

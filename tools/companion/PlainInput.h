#pragma once

#include "tools/companion/Input.h"

#include <string>
#include <systemd/sd-event.h>

namespace companion {

/// Lines from a pipe, a file or a terminal, as they come.
class PlainInput : public Input {
public:
    explicit PlainInput(InputObserver& observer) : observer_(observer) {}
    ~PlainInput() override;
    PlainInput(const PlainInput&) = delete;
    PlainInput& operator=(const PlainInput&) = delete;

    /// Has the event loop read standard input. Gives 0 or a negative errno.
    [[nodiscard]] int serve(sd_event* event);

    void setPaused(bool isPaused) override;
    void stop() override;

private:
    static int readPollable(sd_event_source*, int, std::uint32_t events, void* self) noexcept;
    static int readFile(sd_event_source*, void* self) noexcept;
    void readSome(bool isHungUp);
    void take(std::string_view bytes);
    void end();

    InputObserver& observer_;
    sd_event_source* source_ = nullptr;
    std::string unfinishedLine_;
    bool isTerminal_ = false;
    bool isStopped_ = false;
};

} // namespace companion

#include "platform/recording/RunLoop.h"

#include "platform/recording/Recording.h"

#include <deque>
#include <utility>

namespace platform {

namespace {

std::deque<std::function<void()>>& events() {
    static std::deque<std::function<void()>> instance;
    return instance;
}

class RecordedRunLoop : public NSRunLoop {};

} // namespace

NSRunLoop& currentRunLoop() {
    static RecordedRunLoop runLoop;
    recording::record("currentRunLoop");
    return runLoop;
}

namespace recording {

void post(std::function<void()> event) {
    events().push_back(std::move(event));
}

void dropEvents() {
    events().clear();
}

bool runOnce() {
    if (events().empty())
        return false;
    const std::function<void()> event = std::move(events().front());
    events().pop_front();
    event();
    return true;
}

void runAll() {
    while (runOnce()) {
    }
}

} // namespace recording

} // namespace platform

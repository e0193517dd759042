#include "platform/recording/Recording.h"

#include "platform/recording/RunLoop.h"
#include "platform/recording/Streams.h"

#include <utility>

namespace platform::recording {

namespace {

struct State {
    Script script;
    World world;
    std::vector<std::string> calls;
};

State& state() {
    static State instance;
    return instance;
}

} // namespace

Script& script() {
    return state().script;
}

World& world() {
    return state().world;
}

const std::vector<std::string>& calls() {
    return state().calls;
}

void record(std::string call) {
    state().calls.push_back(std::move(call));
}

void reset() {
    dropEvents();
    forgetStreams();
    state() = State();
}

} // namespace platform::recording

#include "tests/contract/SystemSurroundings.h"

#include <sstream>

namespace contract {

std::unique_ptr<SystemSurroundings> surroundings;

std::string printed() {
    flushOutput();
    return surroundings->standardOutput.text();
}

std::vector<std::string> logged() {
    flushOutput();
    std::vector<std::string> lines;
    std::istringstream text(surroundings->standardError.text());
    for (std::string line; std::getline(text, line);)
        lines.push_back(line.substr(line.find("] ") + 2));
    return lines;
}

std::uint32_t listen() {
    return surroundings->peer.emplace().port();
}

std::uint32_t unusedPort() {
    return tests::LoopbackPeer().port(); // nobody listens once the peer is destroyed
}

void peerSends(const std::string& bytes) {
    surroundings->peer->send(bytes);
}

void peerCloses() {
    surroundings->peer->finishSending();
}

void peerResets() {
    surroundings->peer->reset();
}

std::string peerReceived() {
    return surroundings->peer->received();
}

bool peerSeesEnd() {
    return surroundings->peer->seesEnd();
}

bool runUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        runFor(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace contract

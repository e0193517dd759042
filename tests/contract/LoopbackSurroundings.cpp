// The peer of back ends whose streams are real.

#include "tests/contract/LoopbackSurroundings.h"

#include "tests/contract/Surroundings.h"
#include "tests/platform/LoopbackPeer.h"

#include <optional>

namespace contract {

namespace {

std::optional<tests::LoopbackPeer> peer;

} // namespace

void dropPeer() {
    peer.reset();
}

std::uint32_t listen() {
    peer.emplace();
    return peer->port();
}

std::uint32_t unusedPort() {
    return tests::LoopbackPeer().port(); // free again once the peer is gone
}

void peerSends(const std::string& bytes) {
    peer->send(bytes);
}

void peerCloses() {
    peer->finishSending();
}

void peerResets() {
    peer->reset();
}

std::string peerReceived() {
    return peer->received();
}

bool peerSeesEnd() {
    return peer->seesEnd();
}

} // namespace contract

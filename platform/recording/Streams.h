#pragma once

namespace platform::recording {

/// Disconnects the existing streams from the peer.
void forgetStreams();

} // namespace platform::recording

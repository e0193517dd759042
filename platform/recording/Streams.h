#pragma once

namespace platform::recording {

/// The streams that exist are no longer what the peer writes to.
void forgetStreams();

} // namespace platform::recording

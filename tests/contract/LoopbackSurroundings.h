#pragma once

namespace contract {

/// Ends the peer of the test before.
void dropPeer();

} // namespace contract

#pragma once

#include <optional>
#include <sys/types.h>

namespace platform::linux_backend {

/// The user at the other end of a TCP connection of IPv4 within this machine: who listens on the
/// peer's port, and who has accepted the connection. If one of them is another user than ours, that
/// one. Users outside our user namespace are all its overflow user. Returns nullopt when neither is
/// found.
[[nodiscard]] std::optional<uid_t> peerUser(int socket);

} // namespace platform::linux_backend

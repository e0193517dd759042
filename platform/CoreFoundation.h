#pragma once

// The part of Core Foundation that the extension relies on. The general rules of
// platform/Foundation.h hold here too.

#include "platform/Foundation.h"

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

/// `CFStreamCreatePairWithSocketToHost`, always with the default allocator: creates an unopened
/// read stream and write stream for one TCP connection to host:port. Nothing is connected yet.
///
/// Each out-parameter receives a stream that the caller owns, or stays null when the stream cannot
/// be created. A port above 65535 still gives a pair, whose opening fails with an error event on
/// each stream.
void CFStreamCreatePairWithSocketToHost(const std::string& host, std::uint32_t port,
                                        std::shared_ptr<NSInputStream>& readStream,
                                        std::shared_ptr<NSOutputStream>& writeStream);

} // namespace platform

#pragma once

#include "platform/Foundation.h"

#include <memory>
#include <string>
#include <string_view>

namespace platform::linux_backend {

/// Parses a file URL received from outside; its description is that text, unchanged.
/// Returns null when it is not the URL of a local file or its path is not valid UTF-8 (such names
/// do not exist on macOS); `failure` then holds the reason as text.
[[nodiscard]] std::shared_ptr<const NSURL> fileURLWithString(std::string_view url,
                                                             std::string& failure);

} // namespace platform::linux_backend

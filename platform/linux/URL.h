#pragma once

#include "platform/Foundation.h"

#include <memory>
#include <string>
#include <string_view>

namespace platform::linux_backend {

/// The file URL that a text from outside holds; its description is that text, unchanged.
/// Null when it is not the URL of a local file or its path is not valid UTF-8 (such a name cannot
/// exist on the extension's home platform); `failure` then says in words what is wrong.
[[nodiscard]] std::shared_ptr<const NSURL> fileURLWithString(std::string_view url,
                                                             std::string& failure);

} // namespace platform::linux_backend

#pragma once

#include "platform/Foundation.h"

#include <string>

namespace findersync {

/// The description of a URL's file-path form, as the log shows it. A URL that has none is fatal.
[[nodiscard]] std::string filePathDescription(const platform::NSURL& url);

/// The path of a URL. A URL that has none is fatal.
[[nodiscard]] std::string requiredPath(const platform::NSURL& url);

} // namespace findersync

#pragma once

#include "platform/Foundation.h"

#include <string>

namespace findersync {

/// The description of a URL's file-path URL, for the log. It is fatal if there is none.
[[nodiscard]] std::string filePathDescription(const platform::NSURL& url);

/// The path of a URL. It is fatal if there is none.
[[nodiscard]] std::string requiredPath(const platform::NSURL& url);

} // namespace findersync

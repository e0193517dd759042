#pragma once

// What finderctl doctor looks at outside the session bus.

#include <string>
#include <vector>

namespace finderctl {

/// One line of the doctor's.
struct Finding {
    std::string subject;
    std::string text;
    std::string remedy; ///< Empty when all is well.
};

/// Whether each running file manager of the user has loaded its plug-in.
[[nodiscard]] std::vector<Finding> examineFileManagers();

/// Whether there is an icon for the badges of the product with this bus name.
[[nodiscard]] Finding examineIcons(const std::string& busName);

/// Whether the user, and nobody else, listens on a port of 127.0.0.1.
[[nodiscard]] Finding examinePort(unsigned port);

} // namespace finderctl

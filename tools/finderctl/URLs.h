#pragma once

#include <string>
#include <vector>

namespace finderctl {

/// The URLs for arguments of the command line. One that starts with "file:" or contains "://" is
/// a URL and stays as it is; any other is a path, which is made absolute without a look at the file
/// system. Throws `Failure` for an argument that cannot become a URL.
[[nodiscard]] std::vector<std::string> urlsOfArguments(const std::vector<std::string>& arguments);

/// The path of a file URL that the extension has accepted.
[[nodiscard]] std::string pathOfURL(const std::string& url);

} // namespace finderctl

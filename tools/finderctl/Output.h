#pragma once

#include <string>

namespace finderctl {

/// Prints a line, or several, with a LF at the end, at once. Returns false when nobody reads
/// standard output any more, which is no failure. Throws `Failure` when it takes nothing for
/// another reason.
bool print(std::string text);

/// Prints a message about what is wrong on standard error.
void complain(const std::string& message);

} // namespace finderctl

#pragma once

// The process's standard output and standard error.

#include <string_view>

namespace platform::linux_backend {

/// Writes out what `print` has gathered. The run loop calls it before it waits. When standard
/// output takes nothing any more, what was gathered is dropped and the process goes on.
void flushStandardOutput();

/// How a service manager's journal classifies a line; the values are syslog's.
enum class Level { Critical = 2, Error = 3, Info = 6 };

/// Writes one line to standard error at once: with a level prefix when standard error is a
/// journal, otherwise with the given prefix. Control characters are escaped, so that no text can
/// pose as a second line.
void writeDiagnostic(Level level, std::string_view prefix, std::string_view text);

/// Whether standard error is the journal that `$JOURNAL_STREAM` names.
[[nodiscard]] bool standardErrorIsJournal();

} // namespace platform::linux_backend

#pragma once

// The process's standard output and standard error.

#include <string_view>

namespace platform::linux_backend {

/// Writes the buffered lines. The run loop calls it before it waits. Lines are dropped when nobody
/// reads the stream any more.
void flushStandardStreams();

/// Buffers one line for standard output: the text and the value directly after it. When standard
/// output is a journal, each line of theirs has the level Info, so that none can forge another.
void bufferLine(std::string_view text, std::string_view value);

/// How a service manager's journal classifies a line; the values are syslog's.
enum class Level { Emergency, Alert, Critical, Error, Warning, Notice, Info, Debug };

/// Buffers one line for standard error: with a level prefix when standard error is a journal,
/// otherwise with the given prefix. Control characters are escaped, so that a text cannot forge a
/// line.
void bufferDiagnostic(Level level, std::string_view prefix, std::string_view text);

/// As `bufferDiagnostic`, and flushes.
void writeDiagnostic(Level level, std::string_view prefix, std::string_view text);

/// Whether standard error is the journal that `$JOURNAL_STREAM` names.
[[nodiscard]] bool standardErrorIsJournal();

} // namespace platform::linux_backend

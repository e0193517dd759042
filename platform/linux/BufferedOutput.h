#pragma once

// The process's standard output and standard error.

#include <string_view>

namespace platform::linux_backend {

/// Writes out the lines that have been gathered. The run loop calls it before it waits. What a
/// stream does not take any more is dropped, and the process goes on.
void flushStandardStreams();

/// Buffers one line for standard output: the text and the value directly after it.
void bufferLine(std::string_view text, std::string_view value);

/// How a service manager's journal classifies a line; the values are syslog's.
enum class Level { Critical = 2, Error = 3, Info = 6 };

/// Gathers one line for standard error: with a level prefix when standard error is a journal,
/// otherwise with the given prefix. Control characters are escaped, so that no text can pose as a
/// second line.
void bufferDiagnostic(Level level, std::string_view prefix, std::string_view text);

/// The same, and writes it out at once.
void writeDiagnostic(Level level, std::string_view prefix, std::string_view text);

/// Whether standard error is the journal that `$JOURNAL_STREAM` names.
[[nodiscard]] bool standardErrorIsJournal();

} // namespace platform::linux_backend

#include "platform/linux/BufferedOutput.h"

#include "process/StandardStreams.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

/// Bytes after which the buffer is flushed: one event prints for as long as inbound bytes arrive,
/// and the trace's reader should work at the same time.
constexpr std::size_t gatherLimit = std::size_t{16} * 1024;

/// Buffered lines, all for the same stream: one write costs more than composing many lines.
struct Gathered {
    int descriptor = STDOUT_FILENO;
    std::string lines;
};

Gathered& gathered() {
    static Gathered gathered;
    return gathered;
}

bool isControlCharacter(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7f;
}

/// Without a branch in the loop, so that the compiler vectorises it.
bool holdsControlCharacter(std::string_view text) {
    unsigned char found = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const int isControl = static_cast<int>(byte < 0x20) | static_cast<int>(byte == 0x7f);
        found = static_cast<unsigned char>(found | isControl);
    }
    return found != 0;
}

void appendWithoutControlCharacters(std::string& line, std::string_view text) {
    if (!holdsControlCharacter(text)) {
        line += text;
        return;
    }
    for (const char character : text) {
        if (!isControlCharacter(character)) {
            line += character;
            continue;
        }
        char escape[sizeof "\\x7F"];
        (void)std::snprintf(escape, sizeof escape, "\\x%02X",
                            static_cast<unsigned>(static_cast<unsigned char>(character)));
        line += escape;
    }
}

/// Where to append a line for a stream. Flushes first when the buffer is full or has lines of the
/// other stream, so that both streams together show the lines in their order.
std::string& linesFor(int descriptor) {
    Gathered& all = gathered();
    if (all.descriptor != descriptor || all.lines.size() >= gatherLimit) {
        linux_backend::flushStandardStreams();
        all.descriptor = descriptor;
    }
    return all.lines;
}

/// Whether a stream is the journal that `$JOURNAL_STREAM` names.
bool isJournal(int descriptor) {
    const char* const journalStream = std::getenv("JOURNAL_STREAM");
    struct stat status{};
    if (journalStream == nullptr || ::fstat(descriptor, &status) != 0)
        return false;
    // No allocation: fatalError calls this when memory has run out.
    char device[64];
    (void)std::snprintf(device, sizeof device, "%ju:%ju", std::uintmax_t{status.st_dev},
                        std::uintmax_t{status.st_ino});
    return std::strcmp(device, journalStream) == 0;
}

} // namespace

namespace linux_backend {

void flushStandardStreams() {
    // Drops a line truncated by bad_alloc.
    const std::string_view lines = gathered().lines;
    (void)process::writeFully(gathered().descriptor, lines.substr(0, lines.rfind('\n') + 1));
    gathered().lines.clear();
}

bool standardErrorIsJournal() {
    static const bool result = isJournal(STDERR_FILENO);
    return result;
}

void bufferDiagnostic(Level level, std::string_view prefix, std::string_view text) {
    std::string& line = linesFor(STDERR_FILENO);
    if (standardErrorIsJournal())
        line.append("<").append(std::to_string(static_cast<int>(level))).append(">");
    else
        line += prefix;
    appendWithoutControlCharacters(line, text);
    line += '\n';
}

void writeDiagnostic(Level level, std::string_view prefix, std::string_view text) {
    bufferDiagnostic(level, prefix, text);
    flushStandardStreams();
}

void bufferLine(std::string_view text, std::string_view value) {
    static const bool hasLevels = isJournal(STDOUT_FILENO);
    std::string& lines = linesFor(STDOUT_FILENO);
    std::size_t begin = lines.size();
    lines.append(text).append(value) += '\n';
    // A journal takes a level from every line, and ends lines at NUL, too.
    constexpr std::string_view level = "<6>";
    constexpr std::string_view ends("\n\0", 2);
    for (; hasLevels && begin < lines.size(); begin = lines.find_first_of(ends, begin) + 1) {
        lines.insert(begin, level);
        begin += level.size();
    }
}

} // namespace linux_backend

} // namespace platform

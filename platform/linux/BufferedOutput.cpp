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

/// A read of inbound messages can print for as long as bytes keep coming; this bounds what is
/// gathered meanwhile. The lines' reader is to work at the same time, not only when all is done.
constexpr std::size_t gatherLimit = std::size_t{16} * 1024;

/// Whole lines, all for the same stream: a write costs more than to make many of them.
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

/// Looks at every character, without a branch, so that the compiler looks at many at a time.
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

/// Where to append a line for a stream. Whoever reads both streams together sees the lines in the
/// order in which they came about: those of the other one, or those that are many, go first.
std::string& linesFor(int descriptor) {
    Gathered& all = gathered();
    if (all.descriptor != descriptor || all.lines.size() >= gatherLimit) {
        linux_backend::flushStandardStreams();
        all.descriptor = descriptor;
    }
    return all.lines;
}

bool namesStandardError(const char* journalStream) {
    struct stat status {};
    if (journalStream == nullptr || ::fstat(STDERR_FILENO, &status) != 0)
        return false;
    // Without an allocation: a fatal error needs the answer when there is no memory any more.
    char device[64];
    (void)std::snprintf(device, sizeof device, "%ju:%ju", std::uintmax_t{status.st_dev},
                        std::uintmax_t{status.st_ino});
    return std::strcmp(device, journalStream) == 0;
}

} // namespace

namespace linux_backend {

void flushStandardStreams() {
    // What there was no memory to finish is no line, and nothing is to be joined to it.
    const std::string_view lines = gathered().lines;
    (void)process::writeFully(gathered().descriptor, lines.substr(0, lines.rfind('\n') + 1));
    gathered().lines.clear();
}

bool standardErrorIsJournal() {
    static const bool isJournal = namesStandardError(std::getenv("JOURNAL_STREAM"));
    return isJournal;
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
    linesFor(STDOUT_FILENO).append(text).append(value) += '\n';
}

} // namespace linux_backend

} // namespace platform

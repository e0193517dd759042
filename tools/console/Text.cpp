#include "tools/console/Text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace console {

namespace {

unsigned byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

bool isContinuation(unsigned byte) {
    return (byte & 0xC0) == 0x80;
}

/// Number of bytes in the sequence that starts with this byte; 0 when none can.
std::size_t sequenceLength(unsigned first) {
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first <= 0xDF)
        return 2;
    if (first >= 0xE0 && first <= 0xEF)
        return 3;
    return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

/// Whether the second byte rules out overlong forms, surrogates and what lies beyond Unicode.
bool isSecondByteInRange(unsigned first, unsigned second) {
    switch (first) {
    case 0xE0:
        return second >= 0xA0;
    case 0xED:
        return second < 0xA0;
    case 0xF0:
        return second >= 0x90;
    case 0xF4:
        return second < 0x90;
    default:
        return true;
    }
}

/// Length of the valid sequence at the start of a text that is not empty; 0 when it is not valid.
std::size_t validSequence(std::string_view text) {
    const unsigned first = byteAt(text, 0);
    const std::size_t length = sequenceLength(first);
    if (length < 2)
        return length;
    if (text.size() < length || !isSecondByteInRange(first, byteAt(text, 1)))
        return 0;
    for (std::size_t index = 1; index < length; ++index) {
        if (!isContinuation(byteAt(text, index)))
            return 0;
    }
    return length;
}

bool isControl(std::string_view sequence) {
    const unsigned first = byteAt(sequence, 0);
    if (sequence.size() == 1)
        return first < 0x20 || first == 0x7F;
    // The second set of control characters: U+0080 to U+009F.
    return first == 0xC2 && byteAt(sequence, 1) < 0xA0;
}

void appendEscaped(std::string& line, std::string_view bytes) {
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        char escape[5];
        (void)std::snprintf(escape, sizeof escape, "\\x%02X", byteAt(bytes, index));
        line += escape;
    }
}

} // namespace

bool wantsColor(int descriptor) {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return ::isatty(descriptor) == 1 && (refused == nullptr || *refused == '\0') &&
           terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

bool isUTF8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = validSequence(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string printable(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = validSequence(text);
        const std::string_view sequence = text.substr(0, length == 0 ? 1 : length);
        if (length == 0 || isControl(sequence))
            appendEscaped(line, sequence);
        else
            line += sequence;
        text.remove_prefix(sequence.size());
    }
    return line;
}

} // namespace console

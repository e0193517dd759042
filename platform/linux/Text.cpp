#include "platform/linux/Text.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/normlzr.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

namespace platform::linux_backend {

namespace {

/// Length of the ASCII text that a text starts with.
std::size_t asciiPrefix(std::string_view text) {
    std::size_t at = 0;
    for (; at + sizeof(std::uint64_t) <= text.size(); at += sizeof(std::uint64_t)) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, text.data() + at, sizeof eight);
        if ((eight & 0x8080808080808080U) != 0)
            break;
    }
    while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0x80U) == 0)
        ++at;
    return at;
}

bool isASCII(std::string_view text) {
    return asciiPrefix(text) == text.size();
}

icu::UnicodeString unicodeString(std::string_view text) {
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

icu::UnicodeString canonicallyDecomposed(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* const normalizer = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status) != 0)
        return unicodeString(text);
    return normalizer->normalize(unicodeString(text), status);
}

/// Whether a combined character ends at a place in a text, or none is there.
bool isCharacterBoundary(const icu::UnicodeString& text, std::int32_t at) {
    UErrorCode status = U_ZERO_ERROR;
    static const std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (!characters)
        return true;
    characters->setText(text);
    return characters->isBoundary(at) != 0;
}

} // namespace

bool isUTF8(std::string_view text) {
    text.remove_prefix(asciiPrefix(text));
    if (text.empty())
        return true;
    UErrorCode status = U_ZERO_ERROR;
    // Nothing is converted: asking for the length of the result checks the whole text.
    (void)u_strFromUTF8(nullptr, 0, nullptr, text.data(), static_cast<std::int32_t>(text.size()),
                        &status);
    return status == U_BUFFER_OVERFLOW_ERROR;
}

bool areCanonicallyEquivalent(std::string_view one, std::string_view other) {
    if (one == other)
        return true;
    if (isASCII(one) && isASCII(other))
        return false;
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t order =
        icu::Normalizer::compare(unicodeString(one), unicodeString(other), 0, status);
    return U_SUCCESS(status) != 0 && order == 0;
}

bool contains(std::string_view text, std::string_view searched) {
    if (searched.empty())
        return false;
    if (isASCII(text) && isASCII(searched))
        return text.find(searched) != std::string_view::npos;
    const icu::UnicodeString decomposed = canonicallyDecomposed(text);
    const icu::UnicodeString needle = canonicallyDecomposed(searched);
    for (std::int32_t at = decomposed.indexOf(needle); at >= 0;
         at = decomposed.indexOf(needle, at + 1)) {
        if (isCharacterBoundary(decomposed, at + needle.length()))
            return true;
    }
    return false;
}

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> pieces;
    pieces.reserve(16); // as many as the lines of one read, mostly
    std::size_t begin = 0;
    for (auto end = text.find(separator); end != std::string_view::npos;
         end = text.find(separator, begin)) {
        pieces.push_back(text.substr(begin, end - begin));
        begin = end + separator.size();
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

std::string withoutNoncharacters(std::string_view text) {
    if (isASCII(text))
        return std::string(text);
    const icu::UnicodeString original = unicodeString(text);
    icu::UnicodeString replaced;
    for (std::int32_t at = 0; at < original.length(); at = original.moveIndex32(at, 1)) {
        const UChar32 character = original.char32At(at);
        replaced.append(U_IS_UNICODE_NONCHAR(character) ? UChar32{0xfffd} : character);
    }
    std::string result;
    return replaced.toUTF8String(result);
}

} // namespace platform::linux_backend

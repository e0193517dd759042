#include "platform/text/Unicode.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/normlzr.h>
#include <unicode/uclean.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace platform::text {

namespace {

/// The number of ASCII characters before the first other one.
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

bool isASCII(char character) {
    return (static_cast<unsigned char>(character) & 0x80U) == 0;
}

bool isASCII(std::string_view text) {
    return asciiPrefix(text) == text.size();
}

/// Throws instead of returning null to ICU. Nothing catches the exception.
void* required(void* memory) {
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void requireSuccess(UErrorCode status) {
    if (U_FAILURE(status) != 0)
        throw std::runtime_error(u_errorName(status));
}

/// When an allocation fails, ICU may crash, hang or return a wrong result. With this allocator it
/// ends the process, as any other failed allocation does.
void prepareICU() {
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(
        nullptr, [](const void*, std::size_t size) { return required(std::malloc(size)); },
        [](const void*, void* memory, std::size_t size) {
            return required(std::realloc(memory, size));
        },
        [](const void*, void* memory) { std::free(memory); }, &status);
    requireSuccess(status);
}

icu::UnicodeString unicodeString(std::string_view text) {
    [[maybe_unused]] static const bool isPrepared = (prepareICU(), true);
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

icu::UnicodeString canonicallyDecomposed(std::string_view text) {
    const icu::UnicodeString original = unicodeString(text);
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* const normalizer = icu::Normalizer2::getNFDInstance(status);
    requireSuccess(status);
    icu::UnicodeString decomposed = normalizer->normalize(original, status);
    requireSuccess(status);
    return decomposed;
}

/// True at a grapheme boundary; unlike ICU, splits CR LF.
bool isCharacterBoundary(const icu::UnicodeString& text, std::int32_t at) {
    if (text.charAt(at - 1) == u'\r' && text.charAt(at) == u'\n')
        return true;
    UErrorCode status = U_ZERO_ERROR;
    static const std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    requireSuccess(status);
    characters->setText(text);
    return characters->isBoundary(at) != 0;
}

} // namespace

bool isUTF8(std::string_view text) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    for (std::int32_t at = 0; at < length;) {
        at += static_cast<std::int32_t>(asciiPrefix(text.substr(static_cast<std::size_t>(at))));
        UChar32 character = 0;
        if (at < length)
            U8_NEXT(bytes, at, length, character);
        if (character < 0)
            return false;
    }
    return true;
}

bool areCanonicallyEquivalent(std::string_view one, std::string_view other) {
    if (one == other)
        return true;
    // Paths that are compared begin alike, and most differ in their last characters. An ASCII
    // character at the end is the same in each normal form.
    if (one.empty() || other.empty() ||
        (isASCII(one.back()) && isASCII(other.back()) && one.back() != other.back()))
        return false;
    const auto [inOne, inOther] = std::ranges::mismatch(one, other);
    // A proper prefix is shorter in decomposed form too.
    if (inOne == one.end() || inOther == other.end())
        return false;
    // No character combines or is reordered across the start of an ASCII character. So two ASCII
    // characters that differ settle it; otherwise compare from the last ASCII character before the
    // difference.
    if (isASCII(*inOne) && isASCII(*inOther))
        return false;
    auto begin = static_cast<std::size_t>(inOne - one.begin());
    while (begin > 0 && !isASCII(one[--begin])) {
    }
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t order = icu::Normalizer::compare(
        unicodeString(one.substr(begin)), unicodeString(other.substr(begin)), 0, status);
    requireSuccess(status);
    return order == 0;
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

} // namespace platform::text

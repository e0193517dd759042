// URLs and texts: an input is up to three texts with a 0xFF byte between one and the next.

#include "platform/text/Unicode.h"

#include "fuzz/Difference.h"
#include "platform/linux/URL.h"
#include "platform/text/FileURL.h"
#include "platform/text/Paths.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/ustring.h>
#include <vector>

using findersync::fuzz::require;
using namespace platform::text;
using platform::linux_backend::fileURLWithString;

namespace {

std::int32_t length(std::string_view text) {
    return static_cast<std::int32_t>(text.size());
}

icu::UnicodeString decoded(std::string_view text) {
    return icu::UnicodeString::fromUTF8({text.data(), length(text)});
}

bool isStrictUTF8(std::string_view bytes) {
    std::vector<UChar> units(bytes.size() + 1);
    UErrorCode status = U_ZERO_ERROR;
    (void)u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), nullptr,
                        bytes.data(), length(bytes), &status);
    return U_SUCCESS(status) != 0;
}

icu::UnicodeString normalized(std::string_view text, bool isComposed) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* const normalizer = isComposed ? icu::Normalizer2::getNFCInstance(status)
                                              : icu::Normalizer2::getNFDInstance(status);
    return normalizer->normalize(decoded(text), status);
}

/// The grapheme boundaries of a text; unlike ICU, splits CR LF.
std::vector<bool> boundaries(const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    characters->setText(text);
    std::vector<bool> at(static_cast<std::size_t>(text.length()) + 1);
    for (std::int32_t end = characters->first(); end != icu::BreakIterator::DONE;
         end = characters->next())
        at[static_cast<std::size_t>(end)] = true;
    for (std::int32_t lineFeed = text.indexOf(u"\r\n"); lineFeed >= 0;
         lineFeed = text.indexOf(u"\r\n", lineFeed + 1))
        at[static_cast<std::size_t>(lineFeed) + 1] = true;
    return at;
}

/// Searches naively: compares at every position.
bool isFound(std::string_view text, std::string_view searched) {
    const icu::UnicodeString in = normalized(text, false);
    const icu::UnicodeString needle = normalized(searched, false);
    if (needle.length() == 0)
        return false;
    const std::vector<bool> isBoundary = boundaries(in);
    for (std::int32_t at = 0; at + needle.length() <= in.length(); ++at) {
        if (in.compare(at, needle.length(), needle) == 0 &&
            isBoundary[static_cast<std::size_t>(at) + static_cast<std::size_t>(needle.length())])
            return true;
    }
    return false;
}

void checkPath(const std::string& path) {
    if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos)
        return;
    const std::string url = fileURLFromPath(path);
    std::string failure;
    const std::size_t end = path.find_last_not_of('/'); // slashes at the end go
    require(pathFromFileURL(url, failure) ==
                (end == std::string::npos ? "/" : path.substr(0, end + 1)),
            "another path after a round trip");
    constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                         "0123456789-._~!$&'()*+,;=:@/%";
    require(url.starts_with("file:///"), "no URL of a local file");
    require(url.find_first_not_of(allowed) == std::string::npos, "a URL holds what it may not");
}

void checkURL(std::string_view url) {
    std::string failure;
    const std::optional<std::string> path = pathFromFileURL(url, failure);
    require(path.has_value() == failure.empty(), "a failure has no reason, or success has one");
    if (path) {
        require(path->starts_with('/'), "a relative path");
        require(path->find('\0') == std::string::npos, "a path with a NUL");
        checkPath(*path);
    }
    const auto object = fileURLWithString(url, failure);
    require((object != nullptr) == (path && isStrictUTF8(*path)), "a URL is taken, or is not");
    require(!object || (object->path() == path && object->description() == url), "another URL");
}

void checkNoncharacters(const std::string& text) {
    const std::string cleaned = withoutNoncharacters(text);
    require(isStrictUTF8(cleaned), "no text");
    require(decoded(text).countChar32() == decoded(cleaned).countChar32(),
            "more or fewer characters");
    require(withoutNoncharacters(cleaned) == cleaned, "a noncharacter is left");
}

void checkPair(const std::string& one, const std::string& other) {
    const bool areEqual = areCanonicallyEquivalent(one, other);
    require(areEqual == areCanonicallyEquivalent(other, one), "equality is not symmetric");
    require(areEqual == (normalized(one, true) == normalized(other, true)),
            "equality is not that of the composed forms");
    require(contains(one, other) == isFound(one, other), "the search finds something else");
    require(areCanonicallyEquivalent(one, one) && (one.empty() || contains(one, one)),
            "a text is not equal to itself or not in itself");
    const std::string inFolder = "/" + one + "/" + other;
    const bool hasParent = ("/" + other + "/").find("/../") != std::string::npos;
    require(hasParent || isInFolder(inFolder, "/" + one), "what is in a folder is not");
    require(isInFolder("/" + one, "/"), "what is in the root is not");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> texts;
    for (std::size_t begin = 0; begin <= size && texts.size() < 3;) {
        const std::size_t end = std::min(input.find('\xFF', begin), size);
        texts.emplace_back(input.substr(begin, end - begin));
        begin = end + 1;
    }
    for (const std::string& text : texts) {
        checkURL(text);
        checkPath(text);
        require(isUTF8(text) == isStrictUTF8(text), "UTF-8 is taken for none, or the reverse");
        if (!isUTF8(text))
            return 0;
        checkNoncharacters(text);
    }
    for (const std::string& one : texts) {
        for (const std::string& other : texts)
            checkPair(one, other);
    }
    return 0;
}

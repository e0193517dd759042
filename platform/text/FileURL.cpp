#include "platform/text/FileURL.h"

#include <algorithm>
#include <cctype>

namespace platform::text {

namespace {

/// Whether a character is not encoded in the path of a URL (RFC 3986, "pchar" and "/").
bool isPathCharacter(char character) {
    constexpr std::string_view punctuation = "-._~!$&'()*+,;=:@/";
    const bool isAlphanumeric = (character >= '0' && character <= '9') ||
                                (character >= 'A' && character <= 'Z') ||
                                (character >= 'a' && character <= 'z');
    return isAlphanumeric || punctuation.find(character) != std::string_view::npos;
}

std::optional<unsigned> hexadecimalDigit(char character) {
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    return std::nullopt;
}

/// Decodes the percent-escape at the start of the text; nullopt when there is none.
std::optional<char> escapedByte(std::string_view text) {
    if (text.size() < 3 || text[0] != '%')
        return std::nullopt;
    const auto high = hexadecimalDigit(text[1]);
    const auto low = hexadecimalDigit(text[2]);
    if (!high || !low)
        return std::nullopt;
    return static_cast<char>(*high * 16 + *low);
}

bool hasPrefixIgnoringCase(std::string_view text, std::string_view lowerCasePrefix) {
    return text.size() >= lowerCasePrefix.size() &&
           std::equal(lowerCasePrefix.begin(), lowerCasePrefix.end(), text.begin(),
                      [](char expected, char character) {
                          return expected == std::tolower(static_cast<unsigned char>(character));
                      });
}

/// The text after scheme and host; nullopt when these do not denote a local file.
std::optional<std::string_view> encodedPath(std::string_view url, std::string& failure) {
    constexpr std::string_view scheme = "file:";
    if (!hasPrefixIgnoringCase(url, scheme)) {
        failure = "it is not a file URL";
        return std::nullopt;
    }
    std::string_view rest = url.substr(scheme.size());
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        const std::string_view host = rest.substr(0, rest.find_first_of("/?#"));
        const bool isThisMachine =
            host.empty() || (host.size() == 9 && hasPrefixIgnoringCase(host, "localhost"));
        if (!isThisMachine) {
            failure = "its host is not this machine";
            return std::nullopt;
        }
        rest.remove_prefix(host.size());
    }
    if (!rest.starts_with('/')) {
        failure = "its path is not absolute";
        return std::nullopt;
    }
    return rest;
}

std::optional<std::string> decodedPath(std::string_view encoded, std::string& failure) {
    std::string path;
    path.reserve(encoded.size());
    while (!encoded.empty()) {
        if (isPathCharacter(encoded.front())) {
            path += encoded.front();
            encoded.remove_prefix(1);
            continue;
        }
        if (encoded.front() == '?' || encoded.front() == '#') {
            failure = "it has a query or a fragment";
            return std::nullopt;
        }
        const std::optional<char> byte = escapedByte(encoded);
        if (!byte) {
            failure = encoded.front() == '%' ? "it holds a broken percent-escape"
                                             : "it holds a character that must be percent-encoded";
            return std::nullopt;
        }
        path += *byte;
        encoded.remove_prefix(3);
    }
    return path;
}

void removeTrailingSlashes(std::string& path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
}

} // namespace

std::string fileURLFromPath(std::string_view absolutePath) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string url = "file://";
    for (const char character : absolutePath) {
        if (isPathCharacter(character)) {
            url += character;
            continue;
        }
        const auto byte = static_cast<unsigned char>(character);
        url += '%';
        url += digits[byte / 16];
        url += digits[byte % 16];
    }
    return url;
}

std::optional<std::string> pathFromFileURL(std::string_view url, std::string& failure) {
    const std::optional<std::string_view> encoded = encodedPath(url, failure);
    if (!encoded)
        return std::nullopt;
    std::optional<std::string> path = decodedPath(*encoded, failure);
    if (!path)
        return std::nullopt;
    if (path->find('\0') != std::string::npos) {
        failure = "its path holds a NUL character";
        return std::nullopt;
    }
    removeTrailingSlashes(*path);
    return path;
}

} // namespace platform::text

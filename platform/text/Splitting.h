#pragma once

#include <string_view>
#include <vector>

namespace platform::text {

/// The pieces of a text between the occurrences of a separator, empty ones included. They refer to
/// the text. The separator is not empty.
///
/// Where one UTF-8 text lies within another is a matter of bytes, on every platform.
[[nodiscard]] inline std::vector<std::string_view> split(std::string_view text,
                                                         std::string_view separator) {
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

} // namespace platform::text

#pragma once

#include <string_view>
#include <vector>

namespace platform::text {

/// Splits a text at each occurrence of a separator, compared byte by byte. Keeps empty pieces. They
/// refer to the text. The separator is not empty.
[[nodiscard]] inline std::vector<std::string_view> split(std::string_view text,
                                                         std::string_view separator) {
    std::vector<std::string_view> pieces;
    pieces.reserve(16); // the usual number of lines in one read
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

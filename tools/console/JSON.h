#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// JSON text, put together from the text of its parts. The only users of a JSON library here are the
// source of this header and the two that read JSON: its own headers take long to compile.

namespace console {

/// The text of a string, quoted and escaped. `text` is valid UTF-8.
[[nodiscard]] std::string jsonString(std::string_view text);

/// The text of an array, from the texts of its elements.
[[nodiscard]] std::string jsonArray(const std::vector<std::string>& elements);

/// The name of a member, and the text of its value.
using JSONMember = std::pair<std::string, std::string>;

/// The text of an object. The members keep their order; no two have the same name.
[[nodiscard]] std::string jsonObject(const std::vector<JSONMember>& members);

} // namespace console

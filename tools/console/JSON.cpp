#include "tools/console/JSON.h"

#include <boost/json/serialize.hpp>

namespace console {

std::string jsonString(std::string_view text) {
    return boost::json::serialize(boost::json::string_view(text));
}

std::string jsonArray(const std::vector<std::string>& elements) {
    std::string text = "[";
    for (const std::string& element : elements)
        text.append(text.size() > 1 ? "," : "").append(element);
    return text + "]";
}

std::string jsonObject(const std::vector<JSONMember>& members) {
    std::string text = "{";
    for (const auto& [name, value] : members)
        text.append(text.size() > 1 ? "," : "").append(jsonString(name)).append(":").append(value);
    return text + "}";
}

} // namespace console

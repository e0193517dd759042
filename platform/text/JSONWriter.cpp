#include "platform/text/JSON.h"

#include <algorithm>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <cmath>
#include <utility>

namespace platform::text {

namespace {

bool isKnownToJSON(const Object& value) {
    if (const auto* number = std::get_if<double>(&value.value))
        return std::isfinite(*number);
    if (const auto* array = std::get_if<NSArray>(&value.value))
        return std::ranges::all_of(*array, isKnownToJSON);
    if (const auto* dictionary = std::get_if<NSDictionary>(&value.value))
        return std::ranges::all_of(*dictionary,
                                   [](const auto& member) { return isKnownToJSON(member.second); });
    return !std::holds_alternative<NSData>(value.value);
}

/// Writes a value recursively; Boost.JSON writes strings and doubles.
class Writer {
public:
    explicit Writer(bool prettyPrinted) : prettyPrinted_(prettyPrinted) {}

    std::string text;

    void operator()(NSNull) { text += "null"; }
    void operator()(bool value) { text += value ? "true" : "false"; }
    void operator()(std::int64_t value) { text += std::to_string(value); }
    void operator()(double value) { text += boost::json::serialize(boost::json::value(value)); }
    void operator()(const std::string& value) {
        text += boost::json::serialize(boost::json::string_view(value));
    }
    void operator()(const NSData&) {} // isJSONContainer rejects it

    void operator()(const NSArray& array) {
        writeList('[', array, ']',
                  [this](const Object& element) { std::visit(*this, element.value); });
    }
    void operator()(const NSDictionary& dictionary) {
        writeList('{', dictionary, '}', [this](const auto& member) {
            (*this)(member.first);
            text += prettyPrinted_ ? " : " : ":";
            std::visit(*this, member.second.value);
        });
    }

private:
    template <typename List, typename WriteElement>
    void writeList(char open, const List& list, char close, WriteElement writeElement) {
        text += open;
        ++level_;
        const char* separator = "";
        for (const auto& element : list) {
            text += std::exchange(separator, ",");
            breakLine();
            writeElement(element);
        }
        --level_;
        if (!list.empty())
            breakLine();
        text += close;
    }

    void breakLine() {
        if (prettyPrinted_)
            text.append("\n").append(level_ * 2, ' ');
    }

    bool prettyPrinted_;
    std::size_t level_ = 0;
};

} // namespace

bool isJSONContainer(const Object& value) {
    const bool isContainer = std::holds_alternative<NSArray>(value.value) ||
                             std::holds_alternative<NSDictionary>(value.value);
    return isContainer && isKnownToJSON(value);
}

std::string JSONText(const Object& value, bool prettyPrinted) {
    Writer writer(prettyPrinted);
    std::visit(writer, value.value);
    return std::move(writer.text);
}

} // namespace platform::text

#include "platform/text/JSON.h"

#include <boost/container/small_vector.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace platform::text {

namespace {

constexpr std::size_t depthLimit = 512;

/// The double nearest to a number, from which the parser's may differ slightly; infinite when it
/// overflows. By std::strtod, since Apple's library has no std::from_chars for doubles before macOS
/// 26; no program here sets a locale, in which a decimal point could be another character.
double nearestDouble(boost::json::string_view literal) {
    return std::strtod(std::string(literal).c_str(), nullptr);
}

/// Receives the parser's events and builds the value. The function names are the parser's.
class ObjectBuilder {
public:
    static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

    using Error = boost::system::error_code;
    using View = boost::json::string_view;

    static bool on_document_begin(Error&) { return true; }
    static bool on_document_end(Error&) { return true; }

    bool on_object_begin(Error&) { return beginContainer(NSDictionary()); }
    bool on_object_end(std::size_t, Error&) { return endContainer(); }
    bool on_array_begin(Error&) { return beginContainer(NSArray()); }
    bool on_array_end(std::size_t, Error&) { return endContainer(); }

    bool on_key_part(View part, std::size_t, Error&) { return gather(key_, part); }
    bool on_key(View part, std::size_t, Error&) { return gather(key_, part); }
    bool on_string_part(View part, std::size_t, Error&) { return gather(string_, part); }
    bool on_string(View part, std::size_t, Error&) {
        gather(string_, part);
        add(std::exchange(string_, {}));
        return true;
    }

    static bool on_number_part(View, Error&) { return true; }
    bool on_int64(std::int64_t number, View, Error&) {
        add(number);
        return true;
    }
    bool on_uint64(std::uint64_t number, View, Error&) {
        add(static_cast<double>(number)); // above the range of std::int64_t
        return true;
    }
    bool on_double(double, View literal, Error& error) {
        const double number = nearestDouble(literal);
        const bool isInteger = literal.find_first_of(".eE") == View::npos;
        if (std::isinf(number) && !isInteger) {
            error = boost::json::error::exponent_overflow;
            return false;
        }
        add(number);
        return true;
    }
    bool on_bool(bool value, Error&) {
        add(value);
        return true;
    }
    bool on_null(Error&) {
        add(NSNull());
        return true;
    }

    static bool on_comment_part(View, Error&) { return true; }
    static bool on_comment(View, Error&) { return true; }

    Object result;

private:
    static bool gather(std::string& text, View part) {
        text.append(part.data(), part.size());
        return true;
    }

    template <typename Value> Object& add(Value value) {
        Object* place = &result;
        if (!open_.empty()) {
            Object::Variant& container = open_.back()->value;
            if (auto* array = std::get_if<NSArray>(&container))
                place = &array->emplace_back();
            else
                place = &std::get<NSDictionary>(container)[std::exchange(key_, {})];
        }
        place->value = std::move(value);
        return *place;
    }

    template <typename Container> bool beginContainer(Container container) {
        open_.push_back(&add(std::move(container)));
        return true;
    }

    bool endContainer() {
        open_.pop_back();
        return true;
    }

    /// The incomplete containers, outermost first. Only the innermost grows, so these pointers stay
    /// valid.
    boost::container::small_vector<Object*, 8> open_;
    std::string key_;
    std::string string_;
};

bool isContainer(const Object& object) {
    return std::holds_alternative<NSDictionary>(object.value) ||
           std::holds_alternative<NSArray>(object.value);
}

} // namespace

std::optional<Object> parseJSON(std::string_view text, std::string& failure) {
    boost::json::parse_options options;
    options.max_depth = depthLimit;
    boost::json::basic_parser<ObjectBuilder> parser(options);
    boost::system::error_code error;
    const std::size_t parsed = parser.write_some(false, text.data(), text.size(), error);
    if (!error && parsed < text.size())
        error = boost::json::error::extra_data;
    if (error) {
        failure = "not JSON: " + error.message() + " at byte " + std::to_string(parsed);
        return std::nullopt;
    }
    if (!isContainer(parser.handler().result)) {
        failure = "the top level is neither an object nor an array";
        return std::nullopt;
    }
    return std::move(parser.handler().result);
}

} // namespace platform::text

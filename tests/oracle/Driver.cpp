// Plays sessions on the recording platform and writes down what came of each.
//
// Standard input holds one session a line, in JSON: an array of events, each an array of its name
// and its arguments, as sessions.py makes them. Bytes are {"bytes": text}, with two hexadecimal
// digits for each. Standard output gets the records of each session: 0xFF ends a record and 0xFE a
// session; neither byte occurs in UTF-8. model.py gives the records that are expected.

#include "extension/FinderSync.h"
#include "extension/PublishedInterface.h"
#include "platform/recording/Recording.h"

#include <algorithm>
#include <array>
#include <boost/algorithm/hex.hpp>
#include <boost/json.hpp>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace {

using findersync::FinderSync;
using Strings = std::vector<std::string>;
using platform::recording::record;
using platform::recording::script;
using platform::recording::world;
using Event = boost::json::array; ///< its name and its arguments
using JSONValue = boost::json::value;
using URL = FinderSync::URL;

/// Thrown where the process would end.
struct FatalError {
    std::string reason;
};

std::string text(const JSONValue& value) {
    return boost::json::value_to<std::string>(value);
}

std::string bytes(const JSONValue& value) {
    return boost::algorithm::unhex(text(value.at("bytes")));
}

platform::NSData data(const JSONValue& value) {
    const std::string content = bytes(value);
    return {.bytes = {content.begin(), content.end()}};
}

platform::Object object(const JSONValue& value) {
    if (value.is_string())
        return {text(value)};
    if (value.is_int64())
        return {value.get_int64()};
    if (value.is_double())
        return {value.get_double()};
    if (value.is_bool())
        return {value.get_bool()};
    if (value.is_array()) {
        platform::NSArray array;
        for (const JSONValue& element : value.get_array())
            array.push_back(object(element));
        return {std::move(array)};
    }
    if (value.is_object() && value.get_object().contains("bytes"))
        return {data(value)};
    if (value.is_object()) {
        platform::NSDictionary dictionary;
        for (const auto& [key, element] : value.get_object())
            dictionary.insert_or_assign(std::string(key), object(element));
        return {std::move(dictionary)};
    }
    return {platform::NSNull()};
}

std::string described(const platform::Object& value) {
    if (const std::string* text = value.string())
        return "text " + *text;
    static constexpr std::array<const char*, 8> kinds = {"null", "bool", "number", "number",
                                                         "text", "data", "array",  "dictionary"};
    return kinds.at(value.value.index());
}

/// The value of a property in the form that records show.
template <typename Value> std::string shown(const Value& value) {
    if constexpr (std::is_same_v<Value, URL>) {
        return value->path().value();
    } else if constexpr (std::is_same_v<Value, Strings>) {
        std::string all = std::to_string(value.size());
        for (const std::string& path : value)
            all += ", " + path;
        return all;
    } else if constexpr (std::is_same_v<Value, std::string>) {
        return value;
    } else {
        return std::to_string(value);
    }
}

/// A JSON value as the type of a property.
template <typename Value> Value wanted(const JSONValue& value) {
    if constexpr (std::is_same_v<Value, URL>) {
        return platform::fileURLWithPath(text(value));
    } else {
        return boost::json::value_to<Value>(value);
    }
}

/// A stream that is not one of the object's.
class ForeignStream : public platform::NSStream {
public:
    void setDelegate(platform::NSStreamDelegate*) override {}
    void scheduleInRunLoop(platform::NSRunLoop&, std::string_view) override {}
    void open() override {}
    [[nodiscard]] bool isEqual(const NSStream& other) const override { return this == &other; }
};

void answer(const std::string& what) {
    record("answer: " + what);
}

/// One session.
class Session {
public:
    Session() { platform::recording::reset(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        extension_.reset();
        for (void* const buffer : world().buffers)
            std::free(buffer); // held on purpose, one for each event that brings bytes
        platform::recording::reset();
    }

    /// Plays the events up to the end of the object. Gives the records.
    std::string play(const boost::json::array& events);

private:
    void prepare(const Event& event);
    void start();
    void handleEvent(const Event& event);
    void menu(const Event& event);
    void set(const Event& event);
    void parse(const Event& event);
    void click(const Event& event);
    URL url(const JSONValue& parts);
    void select(const JSONValue& urls);
    [[nodiscard]] Strings state() const;

    std::unique_ptr<FinderSync> extension_ = std::make_unique<FinderSync>();
    std::vector<URL> urls_; // they live as long as the session, so that each is itself
    bool isOver_ = false;
};

std::string Session::play(const boost::json::array& events) {
    Event event;
    const std::map<std::string_view, std::function<void()>> steps = {
        // What the platform answers.
        {"script", [&] { prepare(event); }},
        {"setting", [&] { script().settings.insert_or_assign(text(event[1]), object(event[3])); }},
        {"no image", [&] { script().images.erase(text(event[1])); }},
        {"port", [&] { world().listeningPorts.insert(event[1].to_number<std::uint32_t>()); }},
        {"answer", [&] { script().hasBytesAvailable.push_back(event[1].as_bool()); }},
        {"read",
         [&] {
             script().reads.push_back({.count = event[1].as_int64(), .bytes = bytes(event[2])});
         }},
        {"write", [&] { script().writes.push_back(event[1].as_int64()); }},
        // What happens to the object.
        {"start", [&] { start(); }},
        {"turn", [] { (void)platform::recording::runOnce(); }},
        {"turns", &platform::recording::runAll},
        {"send", [&] { platform::recording::peerSends(bytes(event[1])); }},
        {"close", &platform::recording::peerCloses},
        {"reset", &platform::recording::peerResets},
        {"event", [&] { handleEvent(event); }},
        {"menu", [&] { menu(event); }},
        {"badge", [&] { extension_->requestBadgeIdentifierForURL(*url(event[1])); }},
        {"observe",
         [&] {
             std::invoke(event[1] == "begin" ? &FinderSync::beginObservingDirectoryAtURL
                                             : &FinderSync::endObservingDirectoryAtURL,
                         *extension_, *url(event[2]));
         }},
        {"click", [&] { click(event); }},
        {"report",
         [&] {
             select(event[2]);
             extension_->sendClickedData(text(event[1]));
         }},
        {"set", [&] { set(event); }},
        {"connect", [&] { extension_->connect(); }},
        {"parse", [&] { parse(event); }},
        {"stringify",
         [&] {
             answer("JSON " + extension_->JSONStringify(object(event[1]), event[2].as_bool()));
         }},
    };
    std::string death;
    try {
        for (auto next = events.begin(); next != events.end() && !isOver_; ++next) {
            event = next->as_array();
            record("event " + text(event[0]));
            steps.at(text(event[0]))();
            script().selection.reset();
        }
    } catch (const FatalError& error) {
        death = "fatal error: " + error.reason;
    }

    // Only these calls and their order are compared; the object is free to make others.
    static constexpr std::array required = {
        "event ",       "answer: ",      "set",       "print: ",           "NSLog: ",
        "malloc: ",     "inputStream ",  "addItem: ", "FIFinderSync init", "CFStreamCreatePair",
        "imageNamed: ", "outputStream ", "NSMenu ",   "initWithTitle:",    "selectedItemURLs"};
    std::string records;
    for (const std::string& call : platform::recording::calls()) {
        const auto isBegin = [&call](const char* prefix) { return call.starts_with(prefix); };
        if (call.starts_with("setDirectoryURLs:"))
            records += "setDirectoryURLs:\xFF"; // the state has them
        else if (std::ranges::any_of(required, isBegin) && !call.ends_with("Stream isEqual:") &&
                 !call.ends_with("Stream released"))
            records += call + '\xFF';
    }
    for (const std::string& part : state())
        records += part + '\xFF';
    return records + death + '\xFF';
}

void Session::prepare(const Event& event) {
    const std::map<std::string_view, bool*> flags = {
        {"has_base", &script().baseObject},        {"has_suite", &script().suiteOpens},
        {"has_read_stream", &script().readStream}, {"has_write_stream", &script().writeStream},
        {"encodes", &script().encoding},           {"is_valid_json", &script().validJSON},
        {"writes_json", &script().writesJSON},
    };
    if (event[1] == "written_json")
        script().writtenJSON = data(event[2]);
    else
        *flags.at(text(event[1])) = event[2].as_bool();
}

void Session::start() {
    isOver_ = extension_->init() == nullptr;
    answer(isOver_ ? "not started" : "started");
}

void Session::handleEvent(const Event& event) {
    const auto code = static_cast<platform::NSStreamEvent>(event[2].to_number<std::uint64_t>());
    ForeignStream foreign;
    std::shared_ptr<platform::NSStream> stream;
    if (event[1] == "input")
        stream = platform::recording::inputStream();
    else if (event[1] == "output")
        stream = platform::recording::outputStream();
    if (stream || event[1] == "foreign")
        extension_->stream(stream ? *stream : foreign, code);
}

void Session::menu(const Event& event) {
    select(event[2]);
    const std::shared_ptr<platform::NSMenu> menu = extension_->menuForMenuKind(
        static_cast<platform::FIMenuKind>(event[1].to_number<std::uint64_t>()));
    if (!menu) {
        answer("no menu");
        return;
    }
    const auto items = platform::recording::itemsOf(*menu);
    answer("menu " + std::to_string(items.size()));
    for (const auto& item : items) {
        for (const std::string& part : {item.title, item.action, item.keyEquivalent, item.image})
            answer(part);
    }
}

void Session::click(const Event& event) {
    select(event[2]);
    const auto* const method = findersync::publishedMethod(text(event[1]));
    std::invoke(std::get<findersync::Action>(method->method), *extension_, nullptr);
}

void Session::set(const Event& event) {
    const auto write = [&]<typename Read, typename Value>(
                           const findersync::PropertyAccessors<Read, Value>& accessors) {
        std::invoke(accessors.set, *extension_, wanted<Value>(event[2]));
    };
    std::visit(write, findersync::publishedProperty(text(event[1]))->accessors);
}

void Session::parse(const Event& event) {
    const platform::NSDictionary dictionary = extension_->JSONParseDictionary(text(event[1]));
    answer("dictionary " + std::to_string(dictionary.size()));
    for (const auto& [key, value] : dictionary) {
        answer(key);
        answer(described(value));
    }
}

URL Session::url(const JSONValue& parts) {
    std::optional<std::string> path;
    if (parts.at(1).is_string())
        path = text(parts.at(1));
    return urls_.emplace_back(
        platform::recording::makeURL(text(parts.at(0)), path, parts.at(2).as_bool()));
}

void Session::select(const JSONValue& urls) {
    if (urls.is_null())
        return;
    script().selection.emplace();
    for (const JSONValue& parts : urls.as_array())
        script().selection->push_back(url(parts));
}

/// The state of the object and of the platform at the end of the session.
Strings Session::state() const {
    Strings all;
    for (const auto& property : findersync::publishedProperties()) {
        const auto read = [&](const auto& accessors) {
            all.push_back(std::string(property.name) + " " +
                          shown(std::invoke(accessors.get, *extension_)));
        };
        std::visit(read, property.accessors);
    }
    for (const URL& url : world().directoryURLs)
        all.push_back("watched " + url->path().value());
    for (const auto& [identifier, badge] : world().badges)
        all.push_back("badge " + identifier + " " + badge.label);
    for (const auto& assignment : world().assignments) {
        const bool isVeryURL = std::ranges::any_of(
            urls_, [&assignment](const URL& url) { return url.get() == assignment.url; });
        all.push_back("assigned " + assignment.identifier + (isVeryURL ? "" : " to another URL"));
    }
    all.push_back("buffers " + std::to_string(world().buffers.size()));
    all.push_back(world().received);
    return all;
}

} // namespace

/// Replaces the platform's function: the linker takes this one.
void platform::fatalError(std::string_view reason) {
    throw FatalError{std::string(reason)};
}

int main() {
    std::ios::sync_with_stdio(false);
    for (std::string line; std::getline(std::cin, line);)
        std::cout << Session().play(boost::json::parse(line).as_array()) << '\xFE';
}

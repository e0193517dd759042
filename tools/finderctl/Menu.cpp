// finderctl menu: what the extension adds to the menu on a selection.

#include "tools/console/Text.h"
#include "tools/finderctl/Arguments.h"
#include "tools/finderctl/Extension.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cstdint>
#include <cstdlib>

namespace finderctl {

namespace {

namespace json = boost::json;

json::array readEntries(sd_bus_message* answer) {
    constexpr const char* whatFailed = "the answer cannot be read";
    json::array entries;
    check(sd_bus_message_enter_container(answer, 'a', "(sss)"), whatFailed);
    const char* title = nullptr;
    const char* action = nullptr;
    const char* image = nullptr;
    for (int result = 1; result > 0;) {
        result = sd_bus_message_read(answer, "(sss)", &title, &action, &image);
        check(result, whatFailed);
        if (result > 0)
            entries.push_back(json::object{{"title", title}, {"action", action}, {"image", image}});
    }
    check(sd_bus_message_exit_container(answer), whatFailed);
    return entries;
}

json::object menuOn(std::uint32_t kind, const std::vector<std::string>& urls) {
    const Extension extension;
    const Message call = extension.newCall("MenuForMenuKind");
    check(sd_bus_message_append_basic(call.get(), 'u', &kind), "the call cannot be made");
    appendList(call.get(), urls);
    const Message answer = extension.call(call);
    int isOffered = 0;
    check(sd_bus_message_read_basic(answer.get(), 'b', &isOffered), "the answer cannot be read");
    return {{"isOffered", isOffered != 0}, {"items", readEntries(answer.get())}};
}

/// Title, action and image of each entry, a line each.
std::string textOf(const json::object& menu) {
    if (!menu.at("isOffered").as_bool())
        return "(no menu)";
    std::string text;
    for (const json::value& entry : menu.at("items").as_array()) {
        const auto quoted = [&entry](const char* key) {
            return console::printable(std::string(entry.at(key).as_string()));
        };
        text += (text.empty() ? "\"" : "\n\"") + quoted("title") + "\"  " + quoted("action");
        if (!entry.at("image").as_string().empty())
            text += "  " + quoted("image");
    }
    return text.empty() ? "(an empty menu)" : text;
}

} // namespace

int menu(const std::string& kind, const Items& items, Form form) {
    const auto place = std::ranges::find(menuKinds, kind) - menuKinds.begin();
    const json::object found = menuOn(static_cast<std::uint32_t>(place), urlsOfArguments(items));
    print(form == Form::JSON ? json::serialize(found) : textOf(found));
    return EXIT_SUCCESS;
}

} // namespace finderctl

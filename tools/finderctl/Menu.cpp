// finderctl menu: what the extension adds to the menu on a selection.

#include "tools/console/Text.h"
#include "tools/finderctl/Arguments.h"
#include "tools/finderctl/Extension.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <boost/json.hpp>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>

namespace finderctl {

namespace {

namespace json = boost::json;

/// Where a menu opens, by the names that users type.
const std::map<std::string, std::uint32_t>& kinds() {
    static const std::map<std::string, std::uint32_t> names = {
        {"items", 0}, {"container", 1}, {"sidebar", 2}, {"toolbar", 3}};
    return names;
}

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

void addMenu(CLI::App& app, Invocation& invocation) {
    CLI::App* const command =
        app.add_subcommand("menu", "Print what the extension adds to the menu on a selection");
    const auto items = std::make_shared<std::vector<std::string>>();
    const auto kind = std::make_shared<std::string>("items");
    command->add_option("--kind", *kind, "Where the menu opens (default items)")
        ->type_name("items|container|sidebar|toolbar")
        ->check(CLI::IsMember(kinds()));
    command->add_option("ITEM", *items, "Path or URL of a selected item")->type_name("PATH|URL");
    command->callback([&invocation, items, kind] {
        invocation.run = [&invocation, items, kind] {
            const json::object menu = menuOn(kinds().at(*kind), urlsOfArguments(*items));
            print(invocation.isJSON ? json::serialize(menu) : textOf(menu));
            return EXIT_SUCCESS;
        };
    });
}

} // namespace finderctl

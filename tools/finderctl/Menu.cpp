// finderctl menu: what the extension adds to the menu on a selection.

#include "tools/console/JSON.h"
#include "tools/console/Text.h"
#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace finderctl {

namespace {

struct Entry {
    std::string title;
    std::string action;
    std::string image; ///< Empty for none.
};

struct Menu {
    bool isOffered = false;
    std::vector<Entry> entries;
};

std::vector<Entry> readEntries(sd_bus_message* reply) {
    std::vector<Entry> entries;
    check(sd_bus_message_enter_container(reply, 'a', "(sss)"), replyFailed);
    const char* title = nullptr;
    const char* action = nullptr;
    const char* image = nullptr;
    for (int result = 1; result > 0;) {
        result = sd_bus_message_read(reply, "(sss)", &title, &action, &image);
        check(result, replyFailed);
        if (result > 0)
            entries.push_back({title, action, image});
    }
    check(sd_bus_message_exit_container(reply), replyFailed);
    return entries;
}

Menu menuOn(const std::string& busName, std::uint32_t kind, const std::vector<std::string>& urls) {
    const ExtensionProxy extension(busName);
    const process::Message call = extension.newCall("MenuForMenuKind");
    check(sd_bus_message_append_basic(call.get(), 'u', &kind), "the call cannot be made");
    appendList(call, urls);
    const process::Message reply = extension.call(call);
    int isOffered = 0;
    check(sd_bus_message_read_basic(reply.get(), 'b', &isOffered), replyFailed);
    return {isOffered != 0, readEntries(reply.get())};
}

/// Title, action and image of each entry, one entry on each line.
std::string textOf(const Menu& menu) {
    if (!menu.isOffered)
        return "(no menu)";
    std::string text;
    for (const Entry& entry : menu.entries) {
        text += (text.empty() ? "\"" : "\n\"") + console::printable(entry.title) + "\"  " +
                console::printable(entry.action);
        if (!entry.image.empty())
            text += "  " + console::printable(entry.image);
    }
    return text.empty() ? "(an empty menu)" : text;
}

std::string jsonOf(const Menu& menu) {
    std::vector<std::string> entries;
    entries.reserve(menu.entries.size());
    for (const Entry& entry : menu.entries)
        entries.push_back(console::jsonObject({{"title", console::jsonString(entry.title)},
                                               {"action", console::jsonString(entry.action)},
                                               {"image", console::jsonString(entry.image)}}));
    return console::jsonObject(
        {{"isOffered", menu.isOffered ? "true" : "false"}, {"items", console::jsonArray(entries)}});
}

} // namespace

int menu(const Arguments& arguments) {
    const auto place = arguments.kind.empty()
                           ? 0
                           : std::ranges::find(menuKinds, arguments.kind) - menuKinds.begin();
    const Menu found = menuOn(arguments.busName, static_cast<std::uint32_t>(place),
                              urlsOfArguments(arguments.items));
    print(arguments.form == Form::JSON ? jsonOf(found) : textOf(found));
    return EXIT_SUCCESS;
}

} // namespace finderctl

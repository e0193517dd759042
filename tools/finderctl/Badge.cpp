// finderctl badge: which badge items carry.

#include "tools/console/JSON.h"
#include "tools/console/Text.h"
#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string_view>
#include <utility>

namespace finderctl {

namespace {

std::vector<std::string> badgesOf(const std::string& busName,
                                  const std::vector<std::string>& urls) {
    const ExtensionProxy extension(busName);
    const process::Message call = extension.newCall("RequestBadgeIdentifiersForURLs");
    appendList(call, urls);
    std::vector<std::string> badges = readList(extension.call(call).get());
    if (badges.size() != urls.size())
        throw Failure("the extension has answered for " + std::to_string(badges.size()) + " of " +
                      std::to_string(urls.size()) + " items");
    return badges;
}

std::string table(const std::vector<std::string>& items, const std::vector<std::string>& badges) {
    constexpr std::string_view none = "(none)";
    std::size_t width = none.size();
    for (const std::string& badge : badges)
        width = std::max(width, badge.size());
    std::string text;
    for (std::size_t index = 0; index < items.size(); ++index) {
        const std::string badge =
            badges[index].empty() ? std::string(none) : console::printable(badges[index]);
        text += (index == 0 ? "" : "\n") + badge;
        text.append(width + 2 - badge.size(), ' ').append(console::printable(items[index]));
    }
    return text;
}

/// The badges by the paths of their items. An item that was named twice is one member.
std::string object(const std::vector<std::string>& urls, const std::vector<std::string>& badges) {
    std::vector<console::JSONMember> members;
    std::set<std::string> named;
    for (std::size_t index = 0; index < urls.size(); ++index) {
        std::string path = pathOfURL(urls[index]);
        if (named.insert(path).second)
            members.emplace_back(std::move(path), console::jsonString(badges[index]));
    }
    return console::jsonObject(members);
}

} // namespace

int badge(const Arguments& arguments) {
    const std::vector<std::string> urls = urlsOfArguments(arguments.items);
    const std::vector<std::string> badges = badgesOf(arguments.busName, urls);
    print(arguments.form == Form::JSON ? object(urls, badges) : table(arguments.items, badges));
    return EXIT_SUCCESS;
}

} // namespace finderctl

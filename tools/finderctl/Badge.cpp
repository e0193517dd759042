// finderctl badge: which badge items carry.

#include "tools/console/Text.h"
#include "tools/finderctl/Arguments.h"
#include "tools/finderctl/Extension.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cstdlib>

namespace finderctl {

namespace {

namespace json = boost::json;

std::vector<std::string> badgesOf(const std::vector<std::string>& urls) {
    const Extension extension;
    const Message call = extension.newCall("RequestBadgeIdentifiersForURLs");
    appendList(call.get(), urls);
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

json::object object(const std::vector<std::string>& urls, const std::vector<std::string>& badges) {
    json::object result;
    for (std::size_t index = 0; index < urls.size(); ++index)
        result[urls[index]] = badges[index];
    return result;
}

} // namespace

int badge(const Items& items, Form form) {
    const std::vector<std::string> urls = urlsOfArguments(items);
    const std::vector<std::string> badges = badgesOf(urls);
    print(form == Form::JSON ? json::serialize(object(urls, badges)) : table(items, badges));
    return EXIT_SUCCESS;
}

} // namespace finderctl

// finderctl state: prints every property of the extension once.

#include "tools/finderctl/Extension.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Properties.h"
#include "tools/finderctl/Subcommands.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace finderctl {

namespace {

namespace json = boost::json;

json::object readState() {
    const Extension extension;
    const Message call = extension.newCall(Extension::propertiesInterface, "GetAll");
    check(sd_bus_message_append(call.get(), "s", Extension::interfaceName),
          "the call cannot be made");
    return readProperties(extension.call(call).get());
}

/// What stands to the right of a property's name: a line for each element of a list.
std::vector<std::string> linesOfProperty(const json::value& value) {
    std::vector<std::string> lines;
    if (const auto* const list = value.if_array()) {
        for (const json::value& element : *list)
            lines.push_back(textOfProperty(element));
    } else if (const auto* const badges = value.if_object()) {
        for (const auto& badge : *badges)
            lines.push_back(textOfProperty(json::value(badge.key())) + ": " +
                            textOfProperty(badge.value()));
    } else {
        lines.push_back(textOfProperty(value));
    }
    return lines;
}

std::string table(const json::object& properties) {
    std::size_t width = 0;
    for (const auto& property : properties)
        width = std::max(width, property.key().size());
    std::string text;
    for (const auto& property : properties) {
        std::string name = property.key();
        std::vector<std::string> lines = linesOfProperty(property.value());
        if (lines.empty())
            lines.emplace_back("(none)");
        for (const std::string& line : lines) {
            text += name;
            if (!line.empty())
                text.append(width + 2 - name.size(), ' ').append(line);
            text += '\n';
            name.clear();
        }
    }
    if (!text.empty())
        text.pop_back();
    return text;
}

} // namespace

int state(Form form) {
    const json::object properties = readState();
    print(form == Form::JSON ? json::serialize(properties) : table(properties));
    return EXIT_SUCCESS;
}

} // namespace finderctl

// finderctl state: prints every property of the extension once.

#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Properties.h"
#include "tools/finderctl/Subcommands.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace finderctl {

namespace {

std::vector<Property> readState() {
    const ExtensionProxy extension;
    const process::Message call = extension.newCall("GetAll", propertiesInterface);
    check(sd_bus_message_append(call.get(), "s", findersync::interfaceName),
          "the call cannot be made");
    return readProperties(extension.call(call).get());
}

std::string table(const std::vector<Property>& properties) {
    std::size_t width = 0;
    for (const Property& property : properties)
        width = std::max(width, property.name.size());
    std::string text;
    for (const Property& property : properties) {
        std::string name = property.name;
        std::vector<std::string> lines = property.lines;
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
    const std::vector<Property> properties = readState();
    print(form == Form::JSON ? jsonOf(properties) : table(properties));
    return EXIT_SUCCESS;
}

} // namespace finderctl

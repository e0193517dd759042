// finderctl state: prints every property of the extension once, the longest last.

#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Properties.h"
#include "tools/finderctl/Subcommands.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

namespace finderctl {

namespace {

std::vector<Property> readState(const ExtensionProxy& extension) {
    std::vector<Property> properties;
    for (const char* const interface :
         {findersync::interfaceName, findersync::processInterfaceName}) {
        const process::Message call = extension.newCall("GetAll", propertiesInterface);
        check(sd_bus_message_append_basic(call.get(), 's', interface), "the call cannot be made");
        std::ranges::move(readProperties(extension.call(call).get()),
                          std::back_inserter(properties));
    }
    return properties;
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

int state(const Arguments& arguments) {
    const ExtensionProxy extension(arguments.busName);
    std::vector<Property> properties = readState(extension);
    int exitCode = EXIT_SUCCESS;
    try {
        const process::Message call = extension.newGet(findersync::interfaceName, rootFolders);
        properties.push_back(readProperty(rootFolders, extension.call(call).get()));
    } catch (const Refused& refusal) { // the list is too long for a message
        complain(std::string(rootFolders) + ": " + refusal.what());
        exitCode = static_cast<int>(refusal.exitCode());
    }
    print(arguments.form == Form::JSON ? jsonOf(properties) : table(properties));
    return exitCode;
}

} // namespace finderctl

// finderctl click: the user picks an entry of the menu.

#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <cstdlib>

namespace finderctl {

int click(const Arguments& arguments) {
    const std::string& selector = arguments.items.front();
    const std::vector<std::string> urls =
        urlsOfArguments({arguments.items.begin() + 1, arguments.items.end()});
    const ExtensionProxy extension(arguments.busName);
    const process::Message call = extension.newCall("PerformAction");
    check(sd_bus_message_append_basic(call.get(), 's', selector.c_str()),
          "the call cannot be made");
    appendList(call, urls);
    (void)extension.call(call);
    return EXIT_SUCCESS;
}

} // namespace finderctl

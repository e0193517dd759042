// finderctl click: the user picks an entry of the menu.

#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <cstdlib>

namespace finderctl {

int click(const std::string& selector, const Items& items) {
    const std::vector<std::string> urls = urlsOfArguments(items);
    const ExtensionProxy extension;
    const process::Message call = extension.newCall("PerformAction");
    check(sd_bus_message_append_basic(call.get(), 's', selector.c_str()),
          "the call cannot be made");
    appendList(call, urls);
    (void)extension.call(call);
    return EXIT_SUCCESS;
}

} // namespace finderctl

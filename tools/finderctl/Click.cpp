// finderctl click: the user picks an entry of the menu.

#include "tools/finderctl/Arguments.h"
#include "tools/finderctl/Extension.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <cstdlib>

namespace finderctl {

int click(const std::string& selector, const Items& items) {
    const std::vector<std::string> urls = urlsOfArguments(items);
    const Extension extension;
    const Message call = extension.newCall("PerformAction");
    check(sd_bus_message_append_basic(call.get(), 's', selector.c_str()),
          "the call cannot be made");
    appendList(call.get(), urls);
    (void)extension.call(call);
    return EXIT_SUCCESS;
}

} // namespace finderctl

// finderctl click: the user picks an entry of the menu.

#include "tools/finderctl/Arguments.h"
#include "tools/finderctl/Extension.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <cstdlib>
#include <memory>

namespace finderctl {

namespace {

int performAction(const std::string& selector, const std::vector<std::string>& items) {
    const std::vector<std::string> urls = urlsOfArguments(items);
    const Extension extension;
    const Message call = extension.newCall("PerformAction");
    check(sd_bus_message_append_basic(call.get(), 's', selector.c_str()),
          "the call cannot be made");
    appendList(call.get(), urls);
    (void)extension.call(call);
    return EXIT_SUCCESS;
}

} // namespace

void addClick(CLI::App& app, Invocation& invocation) {
    CLI::App* const command =
        app.add_subcommand("click", "Pick the entry of an action, with a selection");
    const auto selector = std::make_shared<std::string>();
    const auto items = std::make_shared<std::vector<std::string>>();
    command->add_option("SELECTOR", *selector, "Selector of the action, such as backupClicked:")
        ->required();
    command->add_option("ITEM", *items, "Path or URL of a selected item")->type_name("PATH|URL");
    command->callback([&invocation, selector, items] {
        invocation.run = [selector, items] { return performAction(*selector, *items); };
    });
}

} // namespace finderctl

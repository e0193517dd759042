// finderctl observe, finderctl unobserve: the user starts or stops viewing directories.

#include "tools/finderctl/Extension.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <cstdlib>
#include <memory>

namespace finderctl {

namespace {

/// Calls the method for each argument. A refused one does not keep the others from being told.
int callForEach(const char* member, const std::vector<std::string>& arguments) {
    const std::vector<std::string> urls = urlsOfArguments(arguments);
    const Extension extension;
    int exitCode = EXIT_SUCCESS;
    for (const std::string& url : urls) {
        const Message call = extension.newCall(member);
        check(sd_bus_message_append(call.get(), "s", url.c_str()), "the call cannot be made");
        try {
            (void)extension.call(call);
        } catch (const Refused& refusal) {
            complain(refusal.what());
            exitCode = static_cast<int>(refusal.exitCode());
        }
    }
    return exitCode;
}

void addCallForEach(CLI::App& app, Invocation& invocation, const char* name,
                    const char* description, const char* member) {
    CLI::App* const command = app.add_subcommand(name, description);
    const auto arguments = std::make_shared<std::vector<std::string>>();
    command->add_option("ITEM", *arguments, "Path or URL of a directory")
        ->type_name("PATH|URL")
        ->required();
    command->callback([&invocation, arguments, member] {
        invocation.run = [arguments, member] { return callForEach(member, *arguments); };
    });
}

} // namespace

void addObserve(CLI::App& app, Invocation& invocation) {
    addCallForEach(app, invocation, "observe", "Tell that the user starts viewing directories",
                   "BeginObservingDirectoryAtURL");
}

void addUnobserve(CLI::App& app, Invocation& invocation) {
    addCallForEach(app, invocation, "unobserve", "Tell that the user stops viewing directories",
                   "EndObservingDirectoryAtURL");
}

} // namespace finderctl

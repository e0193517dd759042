// finderctl observe, finderctl unobserve: the user starts or stops viewing directories.

#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"
#include "tools/finderctl/URLs.h"

#include <cstdlib>

namespace finderctl {

namespace {

/// Calls the method for each argument. A refused one does not keep the others from being told.
int callForEach(const char* member, const Arguments& arguments) {
    const std::vector<std::string> urls = urlsOfArguments(arguments.items);
    const ExtensionProxy extension(arguments.busName);
    int exitCode = EXIT_SUCCESS;
    for (const std::string& url : urls) {
        const process::Message call = extension.newCall(member);
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

} // namespace

int observe(const Arguments& arguments) {
    return callForEach("BeginObservingDirectoryAtURL", arguments);
}

int unobserve(const Arguments& arguments) {
    return callForEach("EndObservingDirectoryAtURL", arguments);
}

} // namespace finderctl

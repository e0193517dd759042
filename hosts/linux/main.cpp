// finder-sync-extension: the extension in a process of its own, for file managers on the session
// bus.

#include "extension/ApplicationGroup.h"
#include "hosts/linux/ExtensionService.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "hosts/linux/SessionBus.h"
#include "hosts/linux/Termination.h"
#include "platform/System.h"
#include "platform/linux/FinderSyncController.h"
#include "platform/linux/RunLoop.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

namespace {

/// Serves until it is told to end. Gives the exit code of the process.
int serve() {
    auto& runLoop = platform::linux_backend::runLoopOfThisThread();
    findersync::endOnSignals(runLoop);

    // The name comes first: a second instance ends before it has touched anything.
    findersync::SessionBus bus;
    if (!bus.open(std::string(findersync::applicationGroup) + ".FinderSync", runLoop))
        return EXIT_FAILURE;

    findersync::ObservedFinderSync extension;
    if (extension.init() == nullptr)
        return EXIT_FAILURE;
    findersync::ExtensionService service(bus.get(), extension,
                                         platform::linux_backend::finderSyncController());
    if (const int result = service.publish(); result < 0)
        platform::fatalError(std::string("the object cannot be put onto the session bus: ") +
                             std::strerror(-result));
    return runLoop.run();
}

} // namespace

int main(int argc, char** argv) {
    std::set_terminate([] { platform::fatalError("unexpected exception"); });
    findersync::secureStandardDescriptors();

    const std::string group(findersync::applicationGroup);
    CLI::App app("Finder Sync extension: gives the folders of a sync client a badge and a context "
                 "menu.\n\nStarted by the session bus when a file manager asks for it; runs until "
                 "SIGTERM or SIGINT.");
    app.set_version_flag("--version", "finder-sync-extension " FINDER_SYNC_VERSION);
    app.footer("Bus name:  " + group + ".FinderSync\n" + "Settings:  $XDG_CONFIG_HOME/" + group +
               "/settings.json\n" + "Look inside with: finderctl state");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : 2;
    }
    return serve();
}

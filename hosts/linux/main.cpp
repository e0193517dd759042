// The extension in a process of its own, for file managers on the session bus.

#include "Names.h"
#include "hosts/linux/ExtensionService.h"
#include "hosts/linux/LogControl.h"
#include "hosts/linux/ObservedFinderSync.h"
#include "hosts/linux/ProcessService.h"
#include "hosts/linux/SessionBus.h"
#include "platform/System.h"
#include "platform/linux/FinderSyncController.h"
#include "platform/linux/Log.h"
#include "platform/linux/RunLoop.h"
#include "process/StandardStreams.h"
#include "process/Termination.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <malloc.h>
#include <new>
#include <optional>
#include <string>
#include <string_view>

namespace {

/// Has the allocator return the memory of a large request to the system. By default its thresholds
/// grow, and it keeps up to 64 MiB.
void returnFreedMemory() {
    constexpr int large = 1024 * 1024; // bytes
    (void)::mallopt(M_MMAP_THRESHOLD, large);
    (void)::mallopt(M_TRIM_THRESHOLD, large);
}

/// Runs the extension until a signal or the end of the session. Gives the exit code.
int serve() {
    auto& runLoop = platform::linux_backend::runLoopOfThisThread();
    if (const int result = process::endOnSignals(runLoop.event()); result < 0)
        platform::fatalError(std::string("signals cannot be watched: ") + std::strerror(-result));

    // The name comes first: a second instance ends before it reads settings or connects.
    hosts::linux_host::SessionBus bus;
    if (!bus.open(findersync::busName, runLoop))
        return EXIT_FAILURE;

    hosts::linux_host::ObservedFinderSync extension;
    if (extension.init() == nullptr)
        return EXIT_FAILURE;
    hosts::linux_host::ExtensionService service(bus.get(), extension,
                                                platform::linux_backend::finderSyncController());
    hosts::linux_host::ProcessService processService(bus.get(), extension);
    int result = service.publish();
    if (result >= 0)
        result = processService.publish();
    if (result >= 0)
        result = hosts::linux_host::publishLogControl(bus.get());
    if (result < 0)
        platform::fatalError(std::string("the object cannot be put onto the session bus: ") +
                             std::strerror(-result));
    while (bus.isOpen() && runLoop.runOnce()) {
    }
    return EXIT_SUCCESS;
}

/// No exception is caught anywhere else: it means that memory is exhausted, or a bug.
[[noreturn]] void endOnException() {
    try {
        if (const std::exception_ptr thrown = std::current_exception())
            std::rethrow_exception(thrown);
    } catch (const std::bad_alloc&) {
        platform::fatalError("no memory");
    } catch (const std::exception& exception) {
        platform::fatalError(std::string("unexpected exception: ") + exception.what());
    }
    platform::fatalError("unexpected exception");
}

void printUsage() {
    (void)std::printf("Finder Sync extension: gives the folders of a sync client a badge and a "
                      "context menu.\n\n"
                      "Started by the session bus when a file manager asks for it; runs until "
                      "SIGTERM or SIGINT.\n\n"
                      "Usage: %s [--help | --version | --log-level LEVEL]\n\n"
                      "LEVEL is emerg, alert, crit, err, warning, notice, info or debug, which is "
                      "the default.\n\n"
                      "Bus name:  %s.FinderSync\n"
                      "Settings:  $XDG_CONFIG_HOME/%s/settings.json\n"
                      "Look inside with: %s state\n",
                      findersync::extensionProgram, findersync::applicationGroup,
                      findersync::applicationGroup, findersync::controlProgram);
}

/// Handles the command line. Gives the exit code of the process, or none when it is to run the
/// extension.
///
/// Written by hand: the code of a command-line parser library would take more memory than all the
/// rest of the program.
std::optional<int> answer(int argc, char** argv) {
    if (argc < 2)
        return std::nullopt;
    const std::string_view option = argv[1];
    if (argc == 2 && (option == "--help" || option == "-h")) {
        printUsage();
        return EXIT_SUCCESS;
    }
    if (argc == 2 && option == "--version") {
        (void)std::printf("%s %s\n", findersync::extensionProgram, findersync::version);
        return EXIT_SUCCESS;
    }
    if (argc == 3 && option == "--log-level") {
        if (const auto level = hosts::linux_host::logLevelNamed(argv[2])) {
            platform::linux_backend::setLogLevel(*level);
            return std::nullopt;
        }
    }
    (void)std::fprintf(stderr, "%s: unexpected argument: %s; see %s --help\n",
                       findersync::extensionProgram, argv[argc - 1], findersync::extensionProgram);
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    std::set_terminate(endOnException);
    process::secureStandardDescriptors();
    if (const std::optional<int> code = answer(argc, argv))
        return *code;
    returnFreedMemory();
    return serve();
}

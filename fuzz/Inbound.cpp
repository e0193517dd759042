// Feeds the object on the recording platform with inbound bytes. Whatever arrives, the process ends
// for a reason, or every root folder gets its badge. That the object does the right thing with each
// message, event and request is for tests/oracle.
//
// An input is what arrives, cut into reads by 0xFE, a byte that occurs in no UTF-8 text.

#include "extension/FinderSync.h"
#include "fuzz/Difference.h"
#include "platform/System.h"
#include "platform/recording/Recording.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

using findersync::fuzz::require;
using platform::recording::script;
using platform::recording::world;

namespace {

/// Thrown where the process would end.
struct FatalError {};

/// Asks for what a Finder shows of each root folder and of an item in it.
void checkRoots(findersync::FinderSync& extension) {
    std::size_t count = 0;
    for (const std::string& root : extension.pathsOfRootFolders()) {
        extension.requestBadgeIdentifierForURL(*platform::recording::makeURL("file", root));
        require(world().assignments.size() == ++count, "a root folder has no badge");
        for (const std::string& other : extension.pathsOfRootFolders())
            require(&other == &root || !platform::isEqualToString(other, root),
                    "a root folder is there twice");
        script().selection = {{platform::recording::makeURL("file", root + "/x")}};
        (void)extension.menuForMenuKind(platform::FIMenuKind::ContextualMenuForItems);
    }
    world().assignments.clear();
}

void receive(std::string_view input) {
    findersync::FinderSync extension;
    require(extension.init() == &extension, "the extension does not start");
    for (const auto piece : platform::componentsSeparatedByString(input, "\xFE")) {
        platform::recording::peerSends(std::string(piece));
        try {
            platform::recording::runAll();
        } catch (const FatalError&) {
            return;
        }
        checkRoots(extension);
    }
    require(extension.isSocketConnected(), "the link is lost");
}

} // namespace

/// Replaces the platform's function: the linker takes this one.
void platform::fatalError(std::string_view /*reason*/) {
    throw FatalError();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    platform::recording::reset();
    world().listeningPorts.insert(61842);
    receive({reinterpret_cast<const char*>(data), size});
    for (void* const buffer : world().buffers)
        std::free(buffer); // held on purpose, one for each event that brings bytes
    platform::recording::reset();
    return 0;
}

// Feeds the object on the recording platform with inbound bytes, stream events and the Finder's
// requests. Only inbound bytes may be fatal, and the state stays consistent. That the object does
// the right thing with each message is for tests/oracle.
//
// An input is what arrives, cut by bytes that occur in no UTF-8 text: after 0xFE comes a letter
// that says what happens next, and its argument, up to the next 0xFE.

#include "extension/FinderSync.h"
#include "fuzz/Difference.h"
#include "platform/System.h"
#include "platform/recording/Recording.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using findersync::fuzz::require;
using platform::recording::script;
using platform::recording::world;

namespace {

/// Thrown where the process would end.
struct FatalError {
    std::string reason;
};

class Session {
public:
    Session() {
        platform::recording::reset();
        world().listeningPorts.insert(61842);
        require(extension_->init() == extension_.get(), "the extension does not start");
        platform::recording::runAll();
    }
    ~Session() {
        extension_.reset();
        for (void* const buffer : world().buffers)
            std::free(buffer); // held on purpose, one for each event that brings bytes
        platform::recording::reset();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Plays one step. Returns false when it was fatal.
    bool take(char what, const std::string& about) {
        try {
            perform(what, about);
            platform::recording::runAll();
        } catch (const FatalError& error) {
            require(std::string_view("creBMA").find(what) == std::string_view::npos,
                    "unexpected fatal error: " + error.reason);
            return false;
        }
        checkState();
        return true;
    }

private:
    void perform(char what, const std::string& about) {
        // Paths are texts, and the Finder passes nothing else on.
        if ((what == 'B' || what == 'M' || what == 'A') &&
            !platform::stringWithUTF8Bytes(about.data(), about.size()))
            return;
        const auto url = platform::recording::makeURL("file", about);
        script().selection = {{url}};
        if (what == 'c') {
            platform::recording::peerCloses();
        } else if (what == 'r') {
            platform::recording::peerResets();
        } else if (what == 'e') {
            const auto event = about.empty() ? '\0' : about.front();
            extension_->stream(*platform::recording::outputStream(),
                               platform::NSStreamEvent{static_cast<unsigned char>(event)});
        } else if (what == 'B') {
            extension_->requestBadgeIdentifierForURL(*url);
        } else if (what == 'M') {
            const auto menu =
                extension_->menuForMenuKind(platform::FIMenuKind::ContextualMenuForItems);
            require(!menu || extension_->isSocketConnected(), "a menu without a link");
        } else if (what == 'A') {
            click(about);
        } else {
            platform::recording::peerSends(about);
        }
    }

    /// A report that arrives is JSON and names the item.
    void click(const std::string& path) {
        world().received.clear();
        extension_->createLinkClicked(nullptr);
        require(world().received.empty() ||
                    extension_->JSONParseDictionary(world().received) ==
                        platform::NSDictionary{{"type", {"clicked_create_url_link"}},
                                               {"items", {platform::NSArray{{path}}}}},
                "another report");
    }

    void checkState() {
        for (std::size_t index = 0; index < roots().size(); ++index) {
            const bool isNew = std::none_of(
                roots().begin(), roots().begin() + static_cast<std::ptrdiff_t>(index),
                [&](const auto& root) { return platform::isEqualToString(root, roots()[index]); });
            require(isNew, "a root folder is there twice");
        }
        require(wasConnected_ || !extension_->isSocketConnected(), "the link is up again");
        wasConnected_ = extension_->isSocketConnected();
    }

    [[nodiscard]] const std::vector<std::string>& roots() const {
        return extension_->pathsOfRootFolders();
    }

    std::unique_ptr<findersync::FinderSync> extension_ = std::make_unique<findersync::FinderSync>();
    bool wasConnected_ = true;
};

} // namespace

/// Replaces the platform's function: the linker takes this one.
void platform::fatalError(std::string_view reason) {
    throw FatalError{std::string(reason)};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Session session;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    char what = 's';
    for (;;) {
        const std::size_t end = input.find('\xFE');
        if (!session.take(what, std::string(input.substr(0, end))) || end == std::string_view::npos)
            return 0;
        input.remove_prefix(end + 1);
        what = input.empty() ? 's' : input.front();
        input.remove_prefix(input.empty() ? 0 : 1);
    }
}

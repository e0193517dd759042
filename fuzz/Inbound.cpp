// The object on the recording platform, beside a model of it: what the companion sends, and what
// the streams and the Finder say in between.
//
// An input is what arrives, cut by bytes that are in no UTF-8 text: after 0xFE comes a letter that
// says what happens next, and what that concerns, up to the next 0xFE.

#include "extension/FinderSync.h"
#include "fuzz/Difference.h"
#include "fuzz/FatalError.h"
#include "fuzz/InboundModel.h"
#include "platform/recording/Recording.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

using findersync::fuzz::require;
using platform::recording::world;

namespace {

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

    /// Lets one thing happen. Gives false when it was fatal.
    bool take(char what, std::string_view about) {
        const bool isExpectedToLive = expect(what, about);
        bool lives = true;
        try {
            perform(what, about);
        } catch (const findersync::fuzz::FatalError& error) {
            require(!isExpectedToLive, "unexpected fatal error: " + error.reason);
            lives = false;
        }
        require(lives == isExpectedToLive, "what is fatal was taken");
        compare();
        return lives;
    }

private:
    bool expect(char what, std::string_view about) {
        switch (what) {
        case 'c':
            isConnected_ = isConnected_ && !isOpen_;
            isOpen_ = false;
            return true;
        case 'r':
            isOpen_ = false;
            return true;
        case 'e':
            if (eventOf(about) == platform::NSStreamEvent::EndEncountered)
                isConnected_ = false;
            return true;
        case 'B':
        case 'M':
        case 'A':
            return true;
        default:
            return !isOpen_ || model_.receive(about);
        }
    }

    void perform(char what, std::string_view about) {
        switch (what) {
        case 'c':
            platform::recording::peerCloses();
            break;
        case 'r':
            platform::recording::peerResets();
            break;
        case 'e':
            extension_->stream(*platform::recording::outputStream(), eventOf(about));
            break;
        case 'B':
            requestBadge(std::string(about));
            break;
        case 'M':
            requestMenu(std::string(about));
            break;
        case 'A':
            click(std::string(about));
            break;
        default:
            platform::recording::peerSends(std::string(about));
            break;
        }
        platform::recording::runAll();
    }

    static platform::NSStreamEvent eventOf(std::string_view about) {
        return platform::NSStreamEvent{about.empty() ? 0U
                                                     : static_cast<unsigned char>(about.front())};
    }

    /// Paths are texts, and what is no text does not get as far as here.
    void requestBadge(const std::string& path) {
        if (!findersync::fuzz::isText(path))
            return;
        world().assignments.clear();
        extension_->requestBadgeIdentifierForURL(*platform::recording::makeURL("file", path));
        const bool isRoot = std::ranges::any_of(model_.roots, [&path](const std::string& root) {
            return findersync::fuzz::composed(root) == findersync::fuzz::composed(path);
        });
        require(world().assignments.size() == (isRoot ? 1U : 0U), "another badge");
    }

    void requestMenu(const std::string& path) {
        if (!findersync::fuzz::isText(path))
            return;
        platform::recording::script().selection = {{platform::recording::makeURL("file", path)}};
        const auto menu = extension_->menuForMenuKind(platform::FIMenuKind::ContextualMenuForItems);
        require(!menu || isConnected_, "a menu without a link");
        require(!menu || !model_.roots.empty(), "a menu without a root folder");
        const std::size_t count = model_.displaysBackup ? 2 : 1;
        require(!menu || platform::recording::itemsOf(*menu).size() == count, "another menu");
    }

    void click(const std::string& path) {
        if (!findersync::fuzz::isText(path))
            return;
        platform::recording::script().selection = {{platform::recording::makeURL("file", path)}};
        world().received.clear();
        extension_->createLinkClicked(nullptr);
        if (isOpen_ || !world().received.empty())
            requireReport(path);
    }

    void requireReport(const std::string& path) {
        const platform::NSDictionary report = extension_->JSONParseDictionary(world().received);
        require(report == platform::NSDictionary{{"type", {"clicked_create_url_link"}},
                                                 {"items", {platform::NSArray{{path}}}}},
                "another report");
    }

    void compare() const {
        require(extension_->pathsOfRootFolders() == model_.roots, "other root folders");
        require(extension_->shareContactTitle() == model_.shareContactTitle, "another title");
        require(extension_->shareViaUrlTitle() == model_.shareViaUrlTitle, "another title");
        require(extension_->backupTitle() == model_.backupTitle, "another title");
        require(extension_->displayBackup() == (model_.displaysBackup ? 1 : 0), "another usage");
        require(extension_->isSocketConnected() == isConnected_, "another state of the link");
    }

    std::unique_ptr<findersync::FinderSync> extension_ = std::make_unique<findersync::FinderSync>();
    findersync::fuzz::InboundModel model_;
    bool isOpen_ = true;
    bool isConnected_ = true;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Session session;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    char what = 's';
    for (;;) {
        const std::size_t end = input.find('\xFE');
        if (!session.take(what, input.substr(0, end)) || end == std::string_view::npos)
            return 0;
        input.remove_prefix(end + 1);
        what = input.empty() ? 's' : input.front();
        input.remove_prefix(input.empty() ? 0 : 1);
    }
}

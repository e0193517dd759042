// Feeds the object on the recording platform with inbound bytes, stream events and the Finder's
// requests. It must abort exactly on malformed messages, and its state must stay consistent.
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
#include <map>
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

    /// Plays one step. Gives false when it was fatal.
    bool take(char what, const std::string& about) {
        const bool isSent = std::string_view("creBMA").find(what) == std::string_view::npos;
        const bool isExpectedToLive = !isSent || !isOpen_ || canBeTaken(about);
        try {
            perform(what, about);
            platform::recording::runAll();
        } catch (const FatalError& error) {
            require(!isExpectedToLive, "unexpected fatal error: " + error.reason);
            return false;
        }
        require(isExpectedToLive, "the process outlives a fatal message");
        checkState();
        return true;
    }

private:
    /// Whether every read of these bytes is UTF-8 and holds only valid messages up to an empty
    /// line.
    bool canBeTaken(std::string_view bytes) {
        for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 1024))) {
            const std::string_view read = bytes.substr(0, 1024);
            if (!isText(read))
                return false;
            std::string_view line;
            for (std::size_t at = 0; at < read.size(); at += line.size() + 1) {
                line = read.substr(at, read.find('\n', at) - at);
                if (line.empty())
                    break;
                if (!isMessage(line))
                    return false;
            }
        }
        return true;
    }

    /// Whether a line has a type and all the strings that its command reads.
    bool isMessage(std::string_view line) {
        static const std::map<std::string_view, std::vector<std::string_view>> needed = {
            {"add_folder", {"path"}},
            {"del_folder", {"path"}},
            {"set_locale", {"shareContactTitle", "shareViaUrlTitle", "backupTitle"}},
            {"set_menu_usage", {"displayBackup"}}};
        const platform::NSDictionary message = extension_->JSONParseDictionary(line);
        const auto isString = [&message](std::string_view key) {
            const auto found = message.find(key);
            return found != message.end() && found->second.string() != nullptr;
        };
        if (!isString("type"))
            return false;
        const auto command = needed.find(*message.find("type")->second.string());
        return command == needed.end() || std::ranges::all_of(command->second, isString);
    }

    static bool isText(std::string_view bytes) {
        return platform::stringWithUTF8Bytes(bytes.data(), bytes.size()).has_value();
    }

    void perform(char what, const std::string& about) {
        const auto event = about.empty() ? '\0' : about.front();
        // Paths are texts, and the Finder passes nothing else on.
        if ((what == 'B' || what == 'M' || what == 'A') && !isText(about))
            return;
        if (what == 'c') {
            platform::recording::peerCloses();
            isConnected_ = isConnected_ && !isOpen_;
            isOpen_ = false;
        } else if (what == 'r') {
            platform::recording::peerResets();
            isOpen_ = false;
        } else if (what == 'e') {
            extension_->stream(*platform::recording::outputStream(),
                               platform::NSStreamEvent{static_cast<unsigned char>(event)});
            isConnected_ = isConnected_ && event != '\x10';
        } else if (what == 'B') {
            requestBadge(about);
        } else if (what == 'M') {
            requestMenu(about);
        } else if (what == 'A') {
            click(about);
        } else {
            platform::recording::peerSends(about);
        }
    }

    void requestBadge(const std::string& path) {
        world().assignments.clear();
        extension_->requestBadgeIdentifierForURL(*platform::recording::makeURL("file", path));
        const bool isRoot = std::ranges::any_of(
            roots(), [&](const auto& root) { return platform::isEqualToString(root, path); });
        require(world().assignments.size() == (isRoot ? 1U : 0U), "another badge");
    }

    void requestMenu(const std::string& path) {
        script().selection = {{platform::recording::makeURL("file", path)}};
        const auto menu = extension_->menuForMenuKind(platform::FIMenuKind::ContextualMenuForItems);
        const bool isInside = std::ranges::any_of(roots(), [&](const auto& root) {
            return platform::containsString(path, root) && !platform::isEqualToString(path, root);
        });
        require((menu != nullptr) == (isConnected_ && isInside), "a menu is offered, or is not");
        const std::size_t count = extension_->displayBackup() == 1 ? 2 : 1;
        require(!menu || platform::recording::itemsOf(*menu).size() == count, "another menu");
    }

    void click(const std::string& path) {
        script().selection = {{platform::recording::makeURL("file", path)}};
        world().received.clear();
        extension_->createLinkClicked(nullptr);
        if (!isOpen_ && world().received.empty())
            return;
        require(extension_->JSONParseDictionary(world().received) ==
                    platform::NSDictionary{{"type", {"clicked_create_url_link"}},
                                           {"items", {platform::NSArray{{path}}}}},
                "another report");
    }

    void checkState() const {
        for (std::size_t index = 0; index < roots().size(); ++index) {
            const bool isNew = std::none_of(
                roots().begin(), roots().begin() + static_cast<std::ptrdiff_t>(index),
                [&](const auto& root) { return platform::isEqualToString(root, roots()[index]); });
            require(isNew, "a root folder is there twice");
        }
        const std::int64_t usage = extension_->displayBackup();
        require(usage == 0 || usage == 1, "another usage");
        require(extension_->isSocketConnected() == isConnected_, "another state of the link");
    }

    [[nodiscard]] const std::vector<std::string>& roots() const {
        return extension_->pathsOfRootFolders();
    }

    std::unique_ptr<findersync::FinderSync> extension_ = std::make_unique<findersync::FinderSync>();
    bool isOpen_ = true;
    bool isConnected_ = true;
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

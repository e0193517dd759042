#pragma once

// The principal object of the extension: all of its state and all of its logic.
//
// Threads: everything runs on the thread that called `init()`. Its run loop carries the stream
// events, and the Finder's callbacks arrive there too, so methods never run concurrently and no
// field needs a lock.
//
// Errors: a required value that is missing or of the wrong type aborts the process
// (`platform::fatalError`). Other errors are ignored. No method throws.
//
// Sources: extension/ implements start-up, accessors and observation callbacks; link/ the
// connection to the companion application and its messages; badges/ the badge and extended
// attributes; menu/ the context menu and its actions.

#include "platform/AppKit.h"
#include "platform/FinderSync.h"
#include "platform/Foundation.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace findersync {

/// Names of extended attributes, or an error message: exactly one of the two is present.
struct AttributesNames {
    std::optional<std::string> error; ///< why the names cannot be listed
    std::optional<std::vector<std::string>> names;
};

class FinderSync : public platform::FIFinderSync, public platform::NSStreamDelegate {
public:
    using URL = std::shared_ptr<const platform::NSURL>;

    /// Initializes every field. Call `init()` before any other method.
    FinderSync() = default;

    /// Releases the fields in the order of their declaration. The streams are not closed first.
    ~FinderSync() override;

    FinderSync(const FinderSync&) = delete;
    FinderSync& operator=(const FinderSync&) = delete;

    // Virtual methods, in vtable order. The object calls its own methods and accessors virtually,
    // so that a subclass can override each of them.

    /// The single directory that the Finder is told to watch; never null.
    [[nodiscard]] virtual const URL& myFolderURL() const;
    virtual void setMyFolderURL(URL url);

    /// Paths of the root folders that the companion application has announced, in its order.
    [[nodiscard]] virtual const std::vector<std::string>& pathsOfRootFolders() const;
    virtual void setPathsOfRootFolders(std::vector<std::string> paths);

    /// TCP port of the companion link. Not limited to 65535.
    [[nodiscard]] virtual std::uint32_t serverPort() const;
    virtual void setServerPort(std::uint32_t port);

    /// Whether the link is considered up: true before any connection exists, so that the menu is
    /// offered from the start, and false permanently once a stream has reported its end.
    [[nodiscard]] virtual bool isSocketConnected() const;
    virtual void setIsSocketConnected(bool isConnected);

    /// Read from the settings and published, but not used by this object.
    [[nodiscard]] virtual std::int64_t displayUrlLink() const;
    virtual void setDisplayUrlLink(std::int64_t value);

    /// The backup entry of the menu is shown only when this is exactly 1.
    [[nodiscard]] virtual std::int64_t displayBackup() const;
    virtual void setDisplayBackup(std::int64_t value);

    /// Titles of the menu entries, in the user's language.
    [[nodiscard]] virtual const std::string& shareContactTitle() const;
    virtual void setShareContactTitle(std::string title);
    [[nodiscard]] virtual const std::string& shareViaUrlTitle() const;
    virtual void setShareViaUrlTitle(std::string title);
    [[nodiscard]] virtual const std::string& backupTitle() const;
    virtual void setBackupTitle(std::string title);

    /// Creates a pair of streams to `serverAddress`:`serverPort` and starts to open them. Does not
    /// block; the outcome is reported to `stream()`. A second call replaces the earlier pair.
    virtual void connect();

    /// `stream:handleEvent:`: handles the events of both streams, and traces each.
    void stream(platform::NSStream& stream, platform::NSStreamEvent event) override;

    /// The platform's message for the calling thread's `errno`, or the number when that message is
    /// not valid UTF-8.
    [[nodiscard]] virtual std::string errnoDescription();

    /// Lists the extended attributes of a file-system item. Follows symbolic links.
    [[nodiscard]] virtual AttributesNames attributesNamesAtPath(const std::string& path);

    /// Starts the object; call it once. Reads the shared settings, tells the Finder which directory
    /// to watch, registers the badge and connects. Returns this object, or null when the base
    /// class's `init` returns null.
    [[nodiscard]] virtual FinderSync* init();

    /// Called when the user opens or leaves a directory inside the watched one. Only logs the URL.
    virtual void beginObservingDirectoryAtURL(const platform::NSURL& url);
    virtual void endObservingDirectoryAtURL(const platform::NSURL& url);

    /// Called when the Finder needs an item's badge. Assigns it, before returning, if the item's
    /// path equals the path of a root folder.
    virtual void requestBadgeIdentifierForURL(const platform::NSURL& url);

    /// The menu for the current selection, or null for none.
    [[nodiscard]] virtual std::shared_ptr<platform::NSMenu>
    menuForMenuKind(platform::FIMenuKind kind);

    /// A value as JSON text; empty when JSON cannot represent the value.
    [[nodiscard]] virtual std::string JSONStringify(const platform::Object& value,
                                                    bool prettyPrinted);

    /// Parses a JSON object. For any other text the dictionary is empty.
    [[nodiscard]] virtual platform::NSDictionary JSONParseDictionary(std::string_view text);

    /// Sends a click report, with the paths of the selected items, in a single write.
    virtual void sendClickedData(const std::string& clickType);

    /// Actions of menu entries: each sends its click report. The sender is ignored and may be null.
    virtual void createLinkClicked(const platform::NSMenuItem* sender);
    virtual void backupClicked(const platform::NSMenuItem* sender);
    virtual void shareContactsClicked(const platform::NSMenuItem* sender);
    virtual void inProgressClicked(const platform::NSMenuItem* sender);
    virtual void notSyncedClicked(const platform::NSMenuItem* sender);
    virtual void syncedClicked(const platform::NSMenuItem* sender);

    // Not virtual, because it never changes.

    /// Host of the companion link.
    [[nodiscard]] const std::string& serverAddress() const { return serverAddress_; }

private:
    void readSettings();

    struct InboundMessage;
    void readInboundMessages();
    void handleInboundText(std::string_view text);
    void handleInboundMessage(const InboundMessage& message);
    void addFolder(const InboundMessage& message);
    void deleteFolder(const InboundMessage& message);
    void setLocale(const InboundMessage& message);
    void setMenuUsage(const InboundMessage& message);

    [[nodiscard]] bool isInsideRootFolder(const std::optional<std::string>& path) const;
    [[nodiscard]] std::shared_ptr<platform::NSMenu> buildMenu() const;

    URL myFolderURL_ = platform::fileURLWithPath("/");
    std::vector<std::string> pathsOfRootFolders_;
    std::string serverAddress_ = "127.0.0.1";
    std::uint32_t serverPort_ = 61842;
    bool isSocketConnected_ = true;
    std::int64_t displayUrlLink_ = 1;
    std::int64_t displayBackup_ = 0;
    std::string shareContactTitle_;
    std::string shareViaUrlTitle_;
    std::string backupTitle_;
    std::shared_ptr<platform::NSInputStream> inputStream_;
    std::shared_ptr<platform::NSOutputStream> outputStream_;
};

} // namespace findersync

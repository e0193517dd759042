#pragma once

// The principal object of the extension: all of its state and all of its logic.
//
// Threads: everything runs on the thread that called `init()`. Its run loop carries the stream
// events, and the Finder's callbacks arrive there too, so no method ever overlaps another and no
// field is locked.
//
// Errors: a value that is taken as certain and is missing or of the wrong type ends the process
// (`platform::fatalError`). Everything else fails quietly. No exception leaves a method.
//
// Sources: extension/ has start-up, accessors and observation callbacks; link/ the connection to
// the companion application, what arrives on it and what is sent; badges/ and menu/ what they say.

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

/// Names of extended attributes, or why they cannot be had: exactly one of the two is present.
struct AttributesNames {
    std::optional<std::string> error; ///< the reason, in words
    std::optional<std::vector<std::string>> names;
};

class FinderSync : public platform::FIFinderSync, public platform::NSStreamDelegate {
public:
    using URL = std::shared_ptr<const platform::NSURL>;

    /// Gives every field its initial value. The object is in service after `init()`.
    FinderSync() = default;

    /// Releases the owned fields in their declared order. The link is neither closed in any orderly
    /// way nor told.
    ~FinderSync() override;

    FinderSync(const FinderSync&) = delete;
    FinderSync& operator=(const FinderSync&) = delete;

    // Virtual operations, in slot order. The object's own methods call each other, and the property
    // accessors, through these slots, so that a subclass sees every call.

    /// The single directory that the Finder is told to watch; never null.
    [[nodiscard]] virtual const URL& myFolderURL() const;
    virtual void setMyFolderURL(URL url);

    /// Paths of the root folders that the companion application has announced, in its order.
    [[nodiscard]] virtual const std::vector<std::string>& pathsOfRootFolders() const;
    virtual void setPathsOfRootFolders(std::vector<std::string> paths);

    /// TCP port of the companion link. Not limited to 65535.
    [[nodiscard]] virtual std::uint32_t serverPort() const;
    virtual void setServerPort(std::uint32_t port);

    /// Whether the link counts as up: true before any connection exists, so that the menu is
    /// offered from the start, and false for good once a stream has reported its end.
    [[nodiscard]] virtual bool isSocketConnected() const;
    virtual void setIsSocketConnected(bool isConnected);

    /// Kept for the companion application and the platform to read. Nothing here consults it.
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

    /// Makes a fresh stream pair to `serverAddress`:`serverPort` and starts opening it. Returns at
    /// once; the outcome arrives through `stream()`. A second call drops the earlier pair.
    virtual void connect();

    /// `stream:handleEvent:`: takes every event of both streams, one trace line each.
    void stream(platform::NSStream& stream, platform::NSStreamEvent event) override;

    /// The platform's text for the calling thread's last system error, or its bare number when that
    /// text is not valid UTF-8.
    [[nodiscard]] virtual std::string errnoDescription();

    /// Lists the extended attributes of a file-system item; a symbolic link is followed.
    [[nodiscard]] virtual AttributesNames attributesNamesAtPath(const std::string& path);

    /// Starts a fresh object; called once. Reads the shared settings, tells the Finder what to
    /// watch, registers the badge and connects. Gives this object, or null when the base class
    /// yields none.
    [[nodiscard]] virtual FinderSync* init();

    /// The user starts or stops viewing a directory inside the watched one. Logged, nothing more.
    virtual void beginObservingDirectoryAtURL(const platform::NSURL& url);
    virtual void endObservingDirectoryAtURL(const platform::NSURL& url);

    /// The Finder wants to know an item's badge: root folders get it, by equality of paths, while
    /// this runs.
    virtual void requestBadgeIdentifierForURL(const platform::NSURL& url);

    /// The menu for the present selection, or null for none.
    [[nodiscard]] virtual std::shared_ptr<platform::NSMenu>
    menuForMenuKind(platform::FIMenuKind kind);

    /// A value as JSON text; empty when it is none that JSON knows.
    [[nodiscard]] virtual std::string JSONStringify(const platform::Object& value,
                                                    bool prettyPrinted);

    /// The dictionary that a JSON text holds, or the empty one when it is not a JSON object.
    [[nodiscard]] virtual platform::NSDictionary JSONParseDictionary(std::string_view text);

    /// Sends one click report, with the paths of what is selected now, in one write.
    virtual void sendClickedData(const std::string& clickType);

    /// Actions of menu entries: each sends its report. The sender is not looked at and can be null.
    virtual void createLinkClicked(const platform::NSMenuItem* sender);
    virtual void backupClicked(const platform::NSMenuItem* sender);
    virtual void shareContactsClicked(const platform::NSMenuItem* sender);
    virtual void inProgressClicked(const platform::NSMenuItem* sender);
    virtual void notSyncedClicked(const platform::NSMenuItem* sender);
    virtual void syncedClicked(const platform::NSMenuItem* sender);

    // No slot: a constant of the object.

    /// Host of the companion link.
    [[nodiscard]] const std::string& serverAddress() const { return serverAddress_; }

private:
    void readSettings();

    void readInboundMessages();
    void handleInboundText(std::string_view text);
    void handleInboundMessage(const platform::NSDictionary& message);
    void addFolder(const platform::NSDictionary& message);
    void deleteFolder(const platform::NSDictionary& message);
    void setLocale(const platform::NSDictionary& message);
    void setMenuUsage(const platform::NSDictionary& message);

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

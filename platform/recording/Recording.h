#pragma once

// An in-memory platform for tests. It records every call in order and succeeds unless it is
// scripted to fail. There is one instance per process; `reset` clears it. Records have the form
// "operation: arguments" or "operation: arguments -> result".

#include "platform/AppKit.h"
#include "platform/CoreFoundation.h"
#include "platform/FinderSync.h"
#include "platform/Foundation.h"
#include "platform/System.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace platform::recording {

/// The outcome of one `read:maxLength:`: the count that it returns, and the bytes that it copies
/// into the buffer, at most `maxLength` of them.
struct Read {
    std::int64_t count = 0;
    std::string bytes;
};

/// The outcome of one `listxattr`: its result, the bytes that it copies into the buffer, and the
/// error number that it sets.
struct AttributeList {
    std::int64_t result = 0;
    std::string bytes;
    int errorNumber = 0;
};

/// The results that the platform returns.
struct Script {
    bool baseObject = true;
    bool suiteOpens = true;
    std::string suiteFailure; ///< the reason when `suiteOpens` is false
    NSDictionary settings;
    std::set<std::string, std::less<>> images = {"icon_Folder", "icon_share", "icon_URLlink",
                                                 "icon_Backup"};
    bool readStream = true;
    bool writeStream = true;
    bool memory = true;
    bool encoding = true;  ///< whether texts can be encoded as UTF-8 data
    bool validJSON = true; ///< false: `isValidJSONObject` rejects everything
    bool writesJSON = true;
    std::optional<NSData> writtenJSON; ///< replaces the text of the value

    std::optional<std::vector<std::shared_ptr<const NSURL>>> selection; ///< `selectedItemURLs`
    std::deque<AttributeList> attributeLists; ///< next outcomes; then an empty list
    std::optional<std::string> errorText;     ///< result of `strerror`; by default the C library's

    std::deque<bool> hasBytesAvailable; ///< next results; then the connection's
    std::deque<Read> reads;             ///< next outcomes; then the connection's
    std::deque<std::int64_t> writes;    ///< next results; then everything is written
};

/// The companion's end of the connections, and the Finder's side.
struct World {
    std::set<std::uint32_t> listeningPorts; ///< where a peer accepts connections
    std::vector<std::shared_ptr<const NSURL>> directoryURLs;
    struct Badge {
        std::shared_ptr<const NSImage> image;
        std::string label;
    };
    std::map<std::string, Badge> badges;
    struct Assignment {
        std::string identifier;
        const NSURL* url = nullptr; ///< the object that was passed
    };
    std::vector<Assignment> assignments;
    std::string received;       ///< by the peer
    std::vector<void*> buffers; ///< results of `malloc`, in order
};

[[nodiscard]] Script& script();
[[nodiscard]] World& world();

/// Everything recorded since the last reset, in order.
[[nodiscard]] const std::vector<std::string>& calls();
void record(std::string call);

/// An entry of a menu that the extension has built.
struct MenuItem {
    std::string title;
    std::string action;
    std::string keyEquivalent;
    std::string image; ///< its name, empty for none

    bool operator==(const MenuItem&) const = default;
};

/// The entries of a menu, in order.
[[nodiscard]] std::vector<MenuItem> itemsOf(const NSMenu& menu);

/// Clears records and script. Existing streams deliver no more events.
void reset();

/// The peer of the newest connection writes bytes. One read returns bytes of one call at most.
void peerSends(std::string bytes);
/// The peer closes, or resets, the newest connection.
void peerCloses();
void peerResets();

/// Delivers the next event. Returns false when there is none.
bool runOnce();
/// Delivers all events.
void runAll();

/// The newest stream pair, null when there is none or it has been released.
[[nodiscard]] std::shared_ptr<NSInputStream> inputStream();
[[nodiscard]] std::shared_ptr<NSOutputStream> outputStream();

/// A URL with the given parts. Without `hasFilePath`, it is not a file URL.
[[nodiscard]] std::shared_ptr<const NSURL>
makeURL(std::string description, std::optional<std::string> path, bool hasFilePath = true);

} // namespace platform::recording

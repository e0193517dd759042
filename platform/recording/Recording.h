#pragma once

// An in-memory platform for tests. It records every call in order, behaves as on a healthy machine
// with a companion application, and fails on demand.
//
// There is one such platform in a process; `reset` makes it new. Records read
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

/// The outcome of one `read:maxLength:`: `count` is what it returns, `bytes` what lies in the
/// buffer afterwards, at most `maxLength` of them.
struct Read {
    std::int64_t count = 0;
    std::string bytes;
};

/// The outcome of one `listxattr`: what it returns, the bytes that it writes into the buffer, and
/// the error number that it leaves.
struct AttributeList {
    std::int64_t result = 0;
    std::string bytes;
    int errorNumber = 0;
};

/// What the platform shall answer.
struct Script {
    bool baseObject = true;
    bool suiteOpens = true;
    std::string suiteFailure; ///< the reason that a suite which does not open gives
    NSDictionary settings;
    std::set<std::string, std::less<>> images = {"icon_Folder", "icon_share", "icon_URLlink",
                                                 "icon_Backup"};
    bool readStream = true;
    bool writeStream = true;
    bool memory = true;
    bool encoding = true;  ///< whether texts can be encoded as UTF-8 data
    bool validJSON = true; ///< false: `isValidJSONObject` refuses everything
    bool writesJSON = true;
    std::optional<NSData> writtenJSON; ///< what is written instead of the value's text

    std::optional<std::vector<std::shared_ptr<const NSURL>>> selection; ///< `selectedItemURLs`
    std::deque<AttributeList> attributeLists; ///< next outcomes of `listxattr`; then an empty list
    std::string errorText = "No such file or directory"; ///< `strerror` of every number

    std::deque<bool> hasBytesAvailable; ///< next answers; then what the connection has
    std::deque<Read> reads;             ///< next outcomes; then what the connection has
    std::deque<std::int64_t> writes;    ///< next outcomes; then everything is taken
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
        const NSURL* url = nullptr; ///< the very URL that was passed
    };
    std::vector<Assignment> assignments;
    std::string received;       ///< what the peer has got
    std::vector<void*> buffers; ///< what `malloc` has given, in order
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

/// A new platform: nothing recorded, nothing scripted. Streams of before stay silent.
void reset();

/// The peer of the newest connection writes bytes; each call is what one read can give at the most.
void peerSends(std::string bytes);
/// The peer closes, or resets, the newest connection.
void peerCloses();
void peerResets();

/// Delivers the next event. Gives false when there is none.
bool runOnce();
/// Delivers events until there is none left.
void runAll();

/// The newest stream pair, null when there is none or it has been released.
[[nodiscard]] std::shared_ptr<NSInputStream> inputStream();
[[nodiscard]] std::shared_ptr<NSOutputStream> outputStream();

/// A URL with the given parts; `hasFilePath` false makes one that is no file URL.
[[nodiscard]] std::shared_ptr<const NSURL>
makeURL(std::string description, std::optional<std::string> path, bool hasFilePath = true);

} // namespace platform::recording

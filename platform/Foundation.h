#pragma once

// The part of Foundation that the extension relies on.
//
// Every operation below is provided by exactly one back end, chosen when the program is linked.
// Unless a comment says otherwise:
//   - strings are valid UTF-8 and may hold NUL characters;
//   - everything runs on the one thread that created the extension object;
//   - nothing throws but `std::bad_alloc`: an operation that can fail says how it reports that.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform {

// ---------------------------------------------------------------------------------------------
// Values
// ---------------------------------------------------------------------------------------------

/// Raw bytes, not necessarily text.
struct NSData {
    std::vector<std::uint8_t> bytes;

    bool operator==(const NSData&) const = default;
};

struct NSNull {
    bool operator==(const NSNull&) const = default;
};

struct Object;
using NSArray = std::vector<Object>;
using NSDictionary = std::map<std::string, Object, std::less<>>;

/// A value of a property list or of a JSON text.
///
/// A number is a `std::int64_t` when it is an integer that fits, otherwise a `double`.
struct Object {
    using Variant = std::variant<NSNull, bool, std::int64_t, double, std::string, NSData, NSArray,
                                 NSDictionary>;
    Variant value;

    /// The text of a string value, null for every other kind. Owned by this object.
    [[nodiscard]] const std::string* string() const { return std::get_if<std::string>(&value); }

    bool operator==(const Object& other) const;
};

inline bool Object::operator==(const Object& other) const {
    return value == other.value;
}

// ---------------------------------------------------------------------------------------------
// NSString, NSData
// ---------------------------------------------------------------------------------------------

/// `initWithBytes:length:` of NSData: copies the bytes into a data object.
[[nodiscard]] NSData dataWithBytes(const std::uint8_t* bytes, std::size_t length);

/// `initWithData:encoding:` with `NSUTF8StringEncoding`: decodes UTF-8 strictly.
/// Returns nullopt when the bytes are not valid UTF-8 (surrogates, overlong forms and values above
/// U+10FFFF are invalid). A NUL byte is an ordinary character.
[[nodiscard]] std::optional<std::string> stringWithUTF8Data(const NSData& data);

/// `initWithBytes:length:encoding:` with `NSUTF8StringEncoding`: decodes exactly `length` bytes, as
/// strictly as `stringWithUTF8Data`.
[[nodiscard]] std::optional<std::string> stringWithUTF8Bytes(const void* bytes, std::size_t length);

/// `initWithUTF8String:`: decodes a NUL-terminated text; nullopt when it is not valid UTF-8.
[[nodiscard]] std::optional<std::string> stringWithUTF8String(const char* text);

/// `dataUsingEncoding:` with `NSUTF8StringEncoding`: encodes a text as UTF-8; nullopt when it
/// cannot be encoded.
[[nodiscard]] std::optional<NSData> dataUsingUTF8Encoding(std::string_view text);

/// `componentsSeparatedByString:`: splits a text at every occurrence of the separator and keeps
/// empty pieces, so k occurrences give k + 1 pieces. The separator is not empty. The pieces refer
/// to `text` and live no longer than it does.
[[nodiscard]] std::vector<std::string_view> componentsSeparatedByString(std::string_view text,
                                                                        std::string_view separator);

/// `isEqualToString:`: whether two texts are canonically equivalent. A letter with an accent equals
/// the same letter followed by the combining accent. Case and white space count, and paths are not
/// resolved.
[[nodiscard]] bool isEqualToString(std::string_view one, std::string_view other);

/// Whether `rangeOfString:` with no options finds `searched` in `text`: case-sensitive; canonically
/// equivalent sequences match; a match ends only at a grapheme boundary; the empty text is never
/// found.
[[nodiscard]] bool containsString(std::string_view text, std::string_view searched);

// ---------------------------------------------------------------------------------------------
// NSJSONSerialization
// ---------------------------------------------------------------------------------------------

/// `JSONObjectWithData:options:error:` with options 0: parses one JSON text whose top level is an
/// object or an array. Returns nullopt on failure; `failure` then holds the reason as text, and the
/// place where the platform tells it. Without `failure`, the error object is dropped.
[[nodiscard]] std::optional<Object> JSONObjectWithData(const NSData& data,
                                                       std::string* failure = nullptr);

/// `isValidJSONObject:`: whether a value can be written as JSON: an array or a dictionary that
/// contains, at any depth, only JSON types. Raw bytes and infinite numbers are not JSON.
[[nodiscard]] bool isValidJSONObject(const Object& value);

/// `dataWithJSONObject:options:error:`, with `NSJSONWritingPrettyPrinted` or no options: the value
/// as UTF-8 text. Without options it is compact; characters outside ASCII are not escaped.
/// The value is one that `isValidJSONObject` accepts. Returns nullopt on failure; the error object
/// is dropped.
[[nodiscard]] std::optional<NSData> dataWithJSONObject(const Object& value, bool prettyPrinted);

// ---------------------------------------------------------------------------------------------
// NSUserDefaults
// ---------------------------------------------------------------------------------------------

/// A suite of settings that a companion application shares with the extension. Read-only here.
class NSUserDefaults {
public:
    virtual ~NSUserDefaults() = default;

    /// `objectForKey:`: the stored value of any type; nullopt when the key is absent.
    [[nodiscard]] virtual std::optional<Object> objectForKey(std::string_view key) const = 0;

    /// `integerForKey:`: the stored value as a 64-bit integer: the integer value of a number, the
    /// integer that a string holds in decimal, 1 or 0 for a Boolean, and 0 for anything else, an
    /// absent key included.
    [[nodiscard]] virtual std::int64_t integerForKey(std::string_view key) const = 0;
};

/// `initWithSuiteName:`: opens the suite named by an application-group identifier.
/// Returns null when it cannot be opened; `failure` then holds the reason as text, where the
/// platform reports one.
[[nodiscard]] std::shared_ptr<const NSUserDefaults>
userDefaultsWithSuiteName(std::string_view suiteName, std::string& failure);

// ---------------------------------------------------------------------------------------------
// NSURL, NSBundle
// ---------------------------------------------------------------------------------------------

/// A URL. Immutable.
class NSURL {
public:
    virtual ~NSURL() = default;

    /// `filePathURL`: the file-path form of this URL, null when it has none.
    [[nodiscard]] virtual std::shared_ptr<const NSURL> filePathURL() const = 0;

    /// `path`: the decoded path, or nullopt. No trailing "/", except for the root.
    [[nodiscard]] virtual std::optional<std::string> path() const = 0;

    /// `description`: the text that replaces `%@` in a log line; for an absolute URL, the URL
    /// itself.
    [[nodiscard]] virtual std::string description() const = 0;
};

/// `fileURLWithPath:`: makes a file URL from a path. Never null. A relative or empty path is
/// resolved against the working directory. The path need not exist.
[[nodiscard]] std::shared_ptr<const NSURL> fileURLWithPath(std::string_view path);

/// `bundlePath` of `mainBundle`: the path of the extension's own bundle.
[[nodiscard]] std::string mainBundlePath();

// ---------------------------------------------------------------------------------------------
// NSLog
// ---------------------------------------------------------------------------------------------

/// `NSLog`: writes one line to the system log. `argument` replaces the one `%@` in `format`.
void NSLog(std::string_view format, std::string_view argument);

// ---------------------------------------------------------------------------------------------
// NSRunLoop, NSStream
// ---------------------------------------------------------------------------------------------

/// The loop of one thread that delivers stream events. Owned by the platform.
class NSRunLoop {
public:
    virtual ~NSRunLoop() = default;
};

/// `currentRunLoop`: the run loop of the calling thread. It lives as long as the thread.
[[nodiscard]] NSRunLoop& currentRunLoop();

/// The mode in which a run loop normally runs.
inline constexpr std::string_view NSDefaultRunLoopMode = "kCFRunLoopDefaultMode";

/// What happened on a stream. An unsigned integer: other values than the named ones can arrive.
///
/// - OpenCompleted: once from each stream that has opened.
/// - HasBytesAvailable: from the input stream when there are bytes to read, and not again before
///   something has been read.
/// - HasSpaceAvailable: from the output stream, once after opening and once after each write, when
///   there is room.
/// - ErrorOccurred: once on each stream that has not ended, when the connection is refused or
///   reset. No end follows. Bytes that arrived before can be read first.
/// - EndEncountered: once from the input stream, when the peer has closed the connection or its
///   sending direction. The output stream still accepts writes.
enum class NSStreamEvent : std::uint64_t {
    OpenCompleted = 1,
    HasBytesAvailable = 2,
    HasSpaceAvailable = 4,
    ErrorOccurred = 8,
    EndEncountered = 16,
};

class NSStream;

/// Receives the events of streams, on the thread of the run loop that the stream is scheduled in.
class NSStreamDelegate {
public:
    virtual ~NSStreamDelegate() = default;

    /// `stream:handleEvent:`.
    virtual void stream(NSStream& stream, NSStreamEvent event) = 0;
};

/// One direction of a connection. Releasing the last reference closes it.
class NSStream {
public:
    virtual ~NSStream() = default;

    /// `setDelegate:`: makes the given object receive the stream's events. The delegate is not
    /// owned and must outlive the stream; null removes it.
    virtual void setDelegate(NSStreamDelegate* delegate) = 0;

    /// `scheduleInRunLoop:forMode:`: delivers the stream's events from that run loop while it runs
    /// in that mode.
    virtual void scheduleInRunLoop(NSRunLoop& runLoop, std::string_view mode) = 0;

    /// `open`: starts opening the stream and returns at once. The outcome arrives later, from the
    /// run loop, as OpenCompleted or ErrorOccurred.
    virtual void open() = 0;

    /// `isEqual:`: whether the other object is the same stream.
    [[nodiscard]] virtual bool isEqual(const NSStream& other) const = 0;
};

class NSInputStream : public NSStream {
public:
    /// `hasBytesAvailable`: true only when a read would return data without blocking. False while
    /// idle, at the end and after an error.
    [[nodiscard]] virtual bool hasBytesAvailable() const = 0;

    /// `read:maxLength:`: copies up to `maxLength` bytes into the buffer. Returns the count, 0 at
    /// the end of the stream, or a negative number on error.
    virtual std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) = 0;
};

class NSOutputStream : public NSStream {
public:
    /// `write:maxLength:`: writes up to `length` bytes. Returns how many were written, or -1 on
    /// error. Never blocks: bytes that the connection has no room for are not written.
    virtual std::int64_t write(const std::uint8_t* bytes, std::size_t length) = 0;
};

} // namespace platform

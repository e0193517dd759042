#pragma once

// The part of Foundation that the extension relies on.
//
// Every operation below is provided by exactly one back end, chosen when the program is linked.
// Unless a comment says otherwise:
//   - strings are valid UTF-8 and may hold NUL characters;
//   - everything runs on the one thread that created the extension object;
//   - nothing throws: an operation that can fail says how it reports that.

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
/// Gives none when the bytes are not valid UTF-8 (surrogates, overlong forms and values above
/// U+10FFFF are not). A NUL byte is an ordinary character.
[[nodiscard]] std::optional<std::string> stringWithUTF8Data(const NSData& data);

/// `initWithBytes:length:encoding:` with `NSUTF8StringEncoding`: decodes exactly `length` bytes, as
/// strictly as `stringWithUTF8Data` does.
[[nodiscard]] std::optional<std::string> stringWithUTF8Bytes(const void* bytes, std::size_t length);

/// `initWithUTF8String:`: decodes a NUL-terminated text. Gives none when it is not valid UTF-8.
[[nodiscard]] std::optional<std::string> stringWithUTF8String(const char* text);

/// `dataUsingEncoding:` with `NSUTF8StringEncoding`: encodes a text as UTF-8, or gives none when
/// the text cannot be encoded.
[[nodiscard]] std::optional<NSData> dataUsingUTF8Encoding(std::string_view text);

/// `componentsSeparatedByString:`: splits a text at every occurrence of the separator and keeps
/// empty pieces, so k occurrences give k + 1 pieces.
/// The separator is not empty. The pieces refer to `text` and live no longer than it does.
[[nodiscard]] std::vector<std::string_view> componentsSeparatedByString(std::string_view text,
                                                                        std::string_view separator);

/// `isEqualToString:`: canonical equivalence of the two texts as Unicode strings. A letter with an
/// accent equals the same letter followed by the combining accent; case, white space and path
/// syntax all count.
[[nodiscard]] bool isEqualToString(std::string_view one, std::string_view other);

/// Whether `rangeOfString:` with no options finds a text in another one: case counts, canonically
/// equivalent sequences match, a match never ends inside a combined character, and the empty text
/// is found nowhere.
[[nodiscard]] bool containsString(std::string_view text, std::string_view searched);

// ---------------------------------------------------------------------------------------------
// NSJSONSerialization
// ---------------------------------------------------------------------------------------------

/// `JSONObjectWithData:options:error:` with options 0: parses one JSON text whose top level is an
/// object or an array. Gives none on any failure; the error object is dropped.
[[nodiscard]] std::optional<Object> JSONObjectWithData(const NSData& data);

/// `isValidJSONObject:`: whether a value can be written as JSON: an array or a dictionary that
/// holds, however deep, only what JSON knows. Raw bytes and infinite numbers are not known to it.
[[nodiscard]] bool isValidJSONObject(const Object& value);

/// `dataWithJSONObject:options:error:`, with `NSJSONWritingPrettyPrinted` or no options: the value
/// as UTF-8 text. Without options it is compact; characters outside ASCII stand for themselves.
/// The value is valid as `isValidJSONObject` says. Gives none on failure; the error object is
/// dropped.
[[nodiscard]] std::optional<NSData> dataWithJSONObject(const Object& value, bool prettyPrinted);

// ---------------------------------------------------------------------------------------------
// NSUserDefaults
// ---------------------------------------------------------------------------------------------

/// A suite of settings that a companion application shares with the extension. Read only here.
class NSUserDefaults {
public:
    virtual ~NSUserDefaults() = default;

    /// `objectForKey:`: the stored value of any type, or none when the key is absent.
    [[nodiscard]] virtual std::optional<Object> objectForKey(std::string_view key) const = 0;

    /// `integerForKey:`: the stored value as a 64-bit integer. A number gives its integer value, a
    /// string that holds a decimal integer gives that integer, a Boolean gives 1 or 0, and anything
    /// else, an absent key included, gives 0.
    [[nodiscard]] virtual std::int64_t integerForKey(std::string_view key) const = 0;
};

/// `initWithSuiteName:`: opens the suite named by an application-group identifier.
/// Gives null when it cannot be opened; `failure` then holds the reason in words, empty where the
/// platform tells none.
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

    /// `path`: the decoded path, or none. A directory's path has no trailing "/", except the root.
    [[nodiscard]] virtual std::optional<std::string> path() const = 0;

    /// `description`: the text that stands for this URL where `%@` is filled in; for an absolute
    /// URL, the URL itself.
    [[nodiscard]] virtual std::string description() const = 0;
};

/// `fileURLWithPath:`: makes a file URL from a path, never null. A relative or empty path resolves
/// against the working directory. Nothing is checked: the path need not exist.
[[nodiscard]] std::shared_ptr<const NSURL> fileURLWithPath(std::string_view path);

/// `bundlePath` of `mainBundle`: the path of the extension's own bundle.
[[nodiscard]] std::string mainBundlePath();

// ---------------------------------------------------------------------------------------------
// NSLog
// ---------------------------------------------------------------------------------------------

/// `NSLog`: writes one line to the system log. `format` holds one `%@`, which takes `argument`.
void NSLog(std::string_view format, std::string_view argument);

// ---------------------------------------------------------------------------------------------
// NSRunLoop, NSStream
// ---------------------------------------------------------------------------------------------

/// The loop of one thread that delivers stream events. Owned by the platform.
class NSRunLoop {
public:
    virtual ~NSRunLoop() = default;
};

/// `currentRunLoop`: the run loop of the calling thread; lives as long as the thread.
[[nodiscard]] NSRunLoop& currentRunLoop();

/// The mode in which a run loop spends its time while nothing special goes on.
inline constexpr std::string_view NSDefaultRunLoopMode = "kCFRunLoopDefaultMode";

/// What happened on a stream. An unsigned integer: other values than the named ones can arrive.
///
/// OpenCompleted comes once from each stream that is open. HasBytesAvailable comes from the input
/// stream when there are bytes to read, and not again before something has been read.
/// HasSpaceAvailable comes from the output stream once after opening, and once more after a write,
/// when there is room again. A connection that is refused or reset is one ErrorOccurred on each
/// stream that has not ended, and no end; what had arrived before can be read first. A peer that
/// closes, or closes its sending direction, is one EndEncountered from the input stream; the output
/// stream still takes writes.
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
    /// owned and must outlive the stream; null takes the delegate away.
    virtual void setDelegate(NSStreamDelegate* delegate) = 0;

    /// `scheduleInRunLoop:forMode:`: has the stream deliver its events on that run loop while the
    /// loop runs in that mode.
    virtual void scheduleInRunLoop(NSRunLoop& runLoop, std::string_view mode) = 0;

    /// `open`: starts opening the stream and returns at once. The outcome arrives later, from the
    /// run loop, as OpenCompleted or ErrorOccurred.
    virtual void open() = 0;

    /// `isEqual:`: whether the other object is this very stream.
    [[nodiscard]] virtual bool isEqual(const NSStream& other) const = 0;
};

class NSInputStream : public NSStream {
public:
    /// `hasBytesAvailable`: true only when a read would return data without blocking. False while
    /// idle, at the end and after an error.
    [[nodiscard]] virtual bool hasBytesAvailable() const = 0;

    /// `read:maxLength:`: copies up to `maxLength` bytes into the buffer. Gives the count, 0 at the
    /// end of the stream, or a negative count on error.
    virtual std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) = 0;
};

class NSOutputStream : public NSStream {
public:
    /// `write:maxLength:`: offers `length` bytes to the stream. Gives how many it took, which can
    /// be fewer, or -1 on error. Never waits: what the connection has no room for is not taken.
    virtual std::int64_t write(const std::uint8_t* bytes, std::size_t length) = 0;
};

} // namespace platform

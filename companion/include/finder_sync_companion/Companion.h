#pragma once

// What a companion application tells the extension, and what it is told. Nothing here reads, writes
// or waits: bytes go in and come out, and an event loop around them is `Server`, or your own.
// There are no threads: one thread uses a companion and its connections. All texts are UTF-8.
// Nothing throws but std::bad_alloc.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace finder_sync {

/// The extension reads this many bytes at once, and parses each read on its own.
inline constexpr std::size_t blockSize = 1024;

/// The titles of the menu's entries. The first is shown nowhere.
struct Titles {
    std::string shareContact;
    std::string shareViaUrl;
    std::string backup;

    bool operator==(const Titles&) const = default;
};

enum class Reason {
    NotAbsolute,
    NotUTF8,
    HoldsNUL,
    TooLong,       ///< its message would not fit into a block
    NotNormalized, ///< "//", "." or ".." in it, or "/" at its end: file managers spell it otherwise
};

/// Why a folder or a title was not taken.
struct Refusal {
    std::string path; ///< of the folder as it was given, or the key of the title on the wire
    Reason reason;

    /// An English sentence that begins with the path and has no full stop. Bytes that are no UTF-8
    /// are escaped.
    [[nodiscard]] std::string message() const;
};

/// The state that every extension is to have: the folders, the titles and the backup entry. Titles
/// and the backup entry are not told until they are set, so the extension keeps what its settings
/// say.
class Companion {
public:
    Companion() = default;
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;
    ~Companion() = default;

    /// Replaces the folders: absolute paths as the file manager shows them, in the order in which
    /// they are announced. Refused ones are left out, and duplicates are taken once.
    std::vector<Refusal> setFolders(std::vector<std::string> paths);

    /// Replaces the titles. A title that is refused keeps its former text. When the three do not
    /// fit into one message, each is cut to a third of the room, at a character's boundary.
    std::vector<Refusal> setTitles(Titles titles);

    /// Shows or hides the backup entry.
    void setBackup(bool isShown);

    [[nodiscard]] const std::vector<std::string>& folders() const { return folders_; }
    [[nodiscard]] const std::optional<Titles>& titles() const { return titles_; }
    [[nodiscard]] std::optional<bool> backup() const { return backup_; }

    /// Whether one of the folders has this path, as text.
    [[nodiscard]] bool hasFolder(std::string_view path) const { return lookup_.contains(path); }

    /// Has this called after each change; a server does so. None for null.
    void setWatcher(std::function<void()> watcher) { watcher_ = std::move(watcher); }

    /// Grows with each change.
    [[nodiscard]] std::uint64_t version() const { return version_; }

private:
    void noteChange();

    std::vector<std::string> folders_;
    std::unordered_set<std::string_view> lookup_; ///< of `folders_`
    std::optional<Titles> titles_;
    std::optional<bool> backup_;
    std::uint64_t version_ = 1;
    std::function<void()> watcher_;
};

/// The menu entry that the user has picked. No file manager offers the last four.
enum class ReportType { CreateUrlLink, Backup, ShareContacts, InProgress, NotSynced, Synced };

/// That the user has picked an entry of the menu.
struct Report {
    ReportType type;
    /// What was selected, usually one item; none when it had gone meanwhile. From a connection,
    /// each is absolute, without empty, "." and ".." components, and inside a folder or the folder
    /// itself.
    std::vector<std::string> paths;

    bool operator==(const Report&) const = default;
};

/// Finds the reports in the extension's bytes: JSON objects with nothing between them, cut
/// anywhere.
class ReportSplitter {
public:
    /// More bytes than the limit in one report are an error.
    explicit ReportSplitter(std::size_t sizeLimit = std::size_t{1} << 20U)
        : sizeLimit_(sizeLimit) {}

    /// Takes bytes from the front, up to the end of a report. Returns the text of that report,
    /// valid until the next call; none once all bytes are taken, or when there was something that
    /// is no report.
    [[nodiscard]] std::optional<std::string_view> next(std::string_view& bytes);

    /// What was wrong, none for nothing.
    [[nodiscard]] const std::optional<std::string>& failed() const { return failed_; }

    /// Whether the bytes so far end within a report.
    [[nodiscard]] bool isWithinReport() const { return depth_ > 0; }

private:
    [[nodiscard]] std::size_t sizeOfRest(std::string_view bytes);

    std::size_t sizeLimit_;
    std::string text_;      ///< of the current report
    std::size_t depth_ = 0; ///< of objects
    bool isInString_ = false;
    bool isEscaped_ = false;
    std::optional<std::string> failed_;
};

/// The link to one extension, which knows nothing at first.
class Connection {
public:
    /// Gives an absolute path without its symbolic links, or an empty text if that fails.
    using Resolver = std::function<std::string(const std::string& path)>;

    /// The companion outlives the connection. Without a resolver, symbolic links are not followed.
    explicit Connection(const Companion& companion, Resolver resolver = nullptr)
        : companion_(companion), resolver_(std::move(resolver)) {}

    /// The next `blockSize` bytes to send; none when the extension has been told all. They count as
    /// told: send all of them, or close the connection. Before you send a block, wait until the one
    /// before is acknowledged and the receive window has room for all of it.
    [[nodiscard]] std::optional<std::string> nextBlock();

    /// Takes bytes that have arrived and gives the reports that they complete. A path that is
    /// inside no folder, as text or once it and the folder are resolved, is dropped and counted. A
    /// report that loses all its paths is dropped.
    [[nodiscard]] std::vector<Report> receive(std::string_view bytes);

    /// Why the connection has to be closed: what has arrived is no report. None if all is well.
    [[nodiscard]] const std::optional<std::string>& failed() const { return failed_; }

    /// How many paths of reports have been dropped.
    [[nodiscard]] std::uint64_t droppedPaths() const { return droppedPaths_; }

private:
    enum class StepKind { SetLocale, SetMenuUsage, DeleteFolder, AddFolder };
    struct Step {
        StepKind kind;
        std::string path;     ///< of a folder
        std::size_t told = 0; ///< the key in `toldFolders_` of a folder to delete
    };

    void plan();
    void planFolders();
    [[nodiscard]] std::string lineOf(const Step& step) const;
    void noteAsTold(const Step& step);
    [[nodiscard]] std::size_t dropPathsOutside(std::vector<std::string>& paths) const;
    [[nodiscard]] bool isInside(const std::string& path) const;

    const Companion& companion_;
    Resolver resolver_;
    ReportSplitter splitter_;
    std::optional<std::string> failed_;
    std::uint64_t droppedPaths_ = 0;

    std::optional<Titles> toldTitles_;
    std::optional<bool> toldBackup_;
    std::map<std::size_t, std::string> toldFolders_; ///< in the extension's order
    std::size_t nextTold_ = 0;

    std::vector<Step> steps_; ///< from what was told to the companion's state of `plannedVersion_`
    std::size_t nextStep_ = 0;
    std::uint64_t plannedVersion_ = 0;
};

} // namespace finder_sync

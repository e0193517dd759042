#pragma once

// Which items a change of the root folders can concern. What badge they have then, only the
// extension knows. The same in every plug-in with badges.

#include "file-managers/Backoff.h"

#include <algorithm>
#include <chrono>
#include <compare>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace file_managers {

/// Stands for the last component of a path in canonical form. Two may have the same, and one item
/// more is asked about.
using NameHash = std::uint32_t;

/// The path is canonically composed, or ends so after its last "/".
inline NameHash nameHash(std::string_view path) {
    return static_cast<NameHash>(std::hash<std::string_view>()(path.substr(path.rfind('/') + 1)));
}

struct RootFolder {
    NameHash name;
    std::uint64_t path; ///< a hash

    // NOLINTNEXTLINE(modernize-use-nullptr): of the generated comparisons
    auto operator<=>(const RootFolder&) const = default;
};

/// The last list that an extension has told, and how it differs from the one before. Tells when to
/// request the next: one at a time.
class RootFolders {
public:
    using List = std::optional<std::vector<RootFolder>>;

    /// The list has changed. Whether to request it now: not while it is requested already, or is to
    /// be after a pause.
    [[nodiscard]] bool request() {
        isOutdated_ = isRequested_;
        return !std::exchange(isRequested_, true);
    }

    /// Takes what was answered. If that is nothing, since the list cannot be had, gives the pause
    /// after which to request it again.
    [[nodiscard]] std::optional<std::chrono::milliseconds> take(List list) {
        isRequested_ = !list;
        isOutdated_ = isOutdated_ && list;
        changed_.clear();
        if (list)
            std::ranges::sort(*list);
        if (list && isKnown_)
            std::ranges::set_symmetric_difference(*list, folders_, std::back_inserter(changed_));
        isKnown_ = list.has_value();
        folders_ = std::move(list).value_or(std::vector<RootFolder>());
        if (!isKnown_)
            return backoff_.next();
        backoff_.reset();
        return {};
    }

    /// Whether the list has changed while it was requested.
    [[nodiscard]] bool areOutdated() const { return isOutdated_; }

    /// Whether an item of this name may have got or lost a badge between the last two lists, or
    /// nobody can tell. Not for the first list: nothing was answered before it.
    [[nodiscard]] bool haveChanged(NameHash name) const { return !isKnown_ || has(changed_, name); }
    [[nodiscard]] bool have(NameHash name) const { return has(folders_, name); }

private:
    static bool has(const std::vector<RootFolder>& folders, NameHash name) {
        return std::ranges::binary_search(folders, name, {}, &RootFolder::name);
    }

    bool isRequested_ = false; ///< or is to be requested again after a pause
    bool isOutdated_ = false;
    bool isKnown_ = false;
    std::vector<RootFolder> folders_;
    std::vector<RootFolder> changed_;
    Backoff backoff_;
};

} // namespace file_managers

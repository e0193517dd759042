#pragma once

// Which items a change of the root folders can concern. What badge they have then, only the
// extension knows. The same in every plug-in with badges.

#include <algorithm>
#include <compare>
#include <cstdint>
#include <functional>
#include <iterator>
#include <string_view>
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

/// The last list that an extension has told, and how it differs from the one before.
class RootFolders {
public:
    void replace(std::vector<RootFolder> folders) {
        std::ranges::sort(folders);
        changed_.clear();
        if (isKnown_)
            std::ranges::set_symmetric_difference(folders, folders_, std::back_inserter(changed_));
        folders_ = std::move(folders);
        isKnown_ = true;
    }

    /// The list could not be had.
    void forget() { *this = {}; }

    /// Whether an item of this name may have got or lost a badge between the last two lists, or
    /// nobody can tell. Not for the first list: nothing was answered before it.
    [[nodiscard]] bool haveChanged(NameHash name) const { return !isKnown_ || has(changed_, name); }
    [[nodiscard]] bool have(NameHash name) const { return has(folders_, name); }

private:
    static bool has(const std::vector<RootFolder>& folders, NameHash name) {
        return std::ranges::binary_search(folders, name, {}, &RootFolder::name);
    }

    bool isKnown_ = false;
    std::vector<RootFolder> folders_;
    std::vector<RootFolder> changed_;
};

} // namespace file_managers

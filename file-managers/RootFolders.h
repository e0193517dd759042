#pragma once

// Which items can have a badge, and which ones a change of the root folders can concern. Whether
// they have it, only the extension knows. The same in every plug-in with badges.

#include "file-managers/Limits.h"

#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_set>

namespace file_managers {

/// Stands for the last component of a path in canonical form. Two may have the same, and one item
/// more is asked about.
using NameHash = std::uint32_t;

/// The path is canonically composed, or ends so after its last "/".
inline NameHash nameHash(std::string_view path) {
    return static_cast<NameHash>(std::hash<std::string_view>()(path.substr(path.rfind('/') + 1)));
}

/// Names of root folders, or of those that were added or removed; any name if they are too many.
///
/// No item of another name is requested, so that a file manager does nothing for the files in a
/// folder, however many. Those of changed names are requested again, with those whose request is
/// pending: its answer may be older than the change. What is requested after the signal is answered
/// after the change, since the bus keeps the order of messages.
class FolderNames {
public:
    void add(NameHash name) {
        if (!areAny_)
            names_.insert(name);
        if (names_.size() > maxFolderNames)
            addAny();
    }
    void addAny() {
        areAny_ = true;
        names_.clear();
    }
    void add(const FolderNames& others) {
        if (others.areAny_)
            addAny();
        for (const NameHash name : others.names_)
            add(name);
    }

    [[nodiscard]] bool areAny() const { return areAny_; }
    [[nodiscard]] bool contain(NameHash name) const { return areAny_ || names_.contains(name); }

private:
    bool areAny_ = false;
    std::unordered_set<NameHash> names_;
};

} // namespace file_managers

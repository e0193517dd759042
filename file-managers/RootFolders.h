#pragma once

// Which items a change of the root folders can concern. What badge they have then, only the
// extension knows. The same in every plug-in with badges.

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

/// The names of root folders that were added or removed; any name if they are too many.
///
/// The items of these names are requested again, with those whose request is pending: its answer
/// may be older than the change. What is requested after the signal is answered after the change,
/// since the bus keeps the order of messages.
class ChangedNames {
public:
    void add(NameHash name) {
        if (!areAny_)
            names_.insert(name);
        if (names_.size() > maxChangedNames)
            addAny();
    }
    void addAny() {
        areAny_ = true;
        names_.clear();
    }
    void add(const ChangedNames& others) {
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

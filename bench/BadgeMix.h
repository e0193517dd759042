#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace findersync::bench {

/// An item that asks for its badge, and root folders beside it, none of which it is.
struct BadgeMix {
    std::string_view name;
    std::string item;
    std::vector<std::string> roots;
};

/// A mix with that many root folders, all of the same length. The names of the mixes:
///   "ascii": paths that differ from the item's in their last component only;
///   "composed": the same in German and Japanese, every other one differs beyond ASCII;
///   "decomposed": these, with all their accents as combining characters, which the item's are not.
[[nodiscard]] BadgeMix badgeMix(std::string_view name, std::size_t rootCount);

} // namespace findersync::bench

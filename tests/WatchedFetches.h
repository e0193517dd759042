#pragma once

// Extensions that watch how a walk fetches the list of root folders.

#include "extension/FinderSync.h"
#include "platform/System.h"

#include <string>
#include <vector>

namespace tests {

/// Counts how often the list is fetched, and can make it shorter behind a walk's back.
class CountingFetches : public findersync::FinderSync {
public:
    [[nodiscard]] const std::vector<std::string>& pathsOfRootFolders() const override {
        ++fetches;
        return fetches > shrinkAfter ? none : FinderSync::pathsOfRootFolders();
    }
    mutable int fetches = 0;
    int shrinkAfter = 1000;
    std::vector<std::string> none;
};

/// Tells when the list is fetched.
class TellingOfFetches : public findersync::FinderSync {
public:
    [[nodiscard]] const std::vector<std::string>& pathsOfRootFolders() const override {
        platform::print("fetched");
        return FinderSync::pathsOfRootFolders();
    }
};

} // namespace tests

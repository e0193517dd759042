#pragma once

// Extensions that observe how the list of root folders is fetched while it is walked.

#include "extension/FinderSync.h"
#include "platform/System.h"

#include <string>
#include <vector>

namespace tests {

/// Counts how often the list is fetched, and can give a shorter list after some fetches.
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

/// Traces each fetch of the list.
class TellingOfFetches : public findersync::FinderSync {
public:
    [[nodiscard]] const std::vector<std::string>& pathsOfRootFolders() const override {
        platform::print("fetched");
        return FinderSync::pathsOfRootFolders();
    }
};

} // namespace tests

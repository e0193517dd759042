#pragma once

#include "tests/file-managers/Session.h"

#include <gtest/gtest.h>

inline const std::string root = "file:///sync";
inline const std::string other = "file:///other";
constexpr milliseconds atOnce(60);

/// A file manager that has just loaded its plug-in.
class Plugin : public testing::Test {
protected:
    bool getsBadge(const std::string& url) {
        return runUntil([&] { return manager.badges(url) == Texts{FileManager::badge}; });
    }
    bool losesBadge(const std::string& url) {
        return runUntil([&] { return manager.badges(url).empty(); });
    }

    /// Waits until the plug-in knows the extension, which a badge shows; where there are none, a
    /// menu that has asked it.
    bool knowsExtension() {
        manager.show(root);
        if constexpr (FileManager::hasBadges)
            return getsBadge(root);
        return runUntil([this] {
            labels = manager.menu({root});
            return !labels.empty() || manager.menuTook() > atOnce;
        });
    }

    void expectTimeout(const Texts& shown) {
        EXPECT_EQ(shown, Texts());
        EXPECT_GE(manager.menuTook(), FileManager::leastTimeout);
        EXPECT_LT(manager.menuTook(), FileManager::mostTimeout);
    }
    void expectNothingAtOnce(const Texts& shown) {
        EXPECT_EQ(shown, Texts());
        EXPECT_LT(manager.menuTook(), atOnce);
    }

    FileManager manager;
    Texts labels; ///< of the menu that knowsExtension() opened last, if any
};

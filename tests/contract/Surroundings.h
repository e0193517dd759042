#pragma once

// What the contract tests do and see outside the contracts. Each back end's test program defines
// these functions once, so that the same tests hold every back end to the same behaviour.

#include "platform/AppKit.h"
#include "platform/Foundation.h"

#include <array>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace contract {

/// Run before and after each test.
void setUp();
void tearDown();

class ContractTest : public testing::Test {
protected:
    void SetUp() override { setUp(); }
    void TearDown() override { tearDown(); }
};

/// Stores settings for the next time that the suite is opened.
inline constexpr std::string_view suiteName = "com.example.contract";
void storeSettings(const platform::NSDictionary& settings);
/// Makes the next opening of the suite fail.
void breakSettings();

/// What has been printed and logged since `setUp`; log lines come without time and process name.
std::string printed();
std::vector<std::string> logged();

/// The paths that the Finder watches, sorted.
std::vector<std::string> watchedPaths();
/// The label of each registered badge, by identifier.
std::map<std::string, std::string> badgeLabels();
/// The badge identifiers assigned since `setUp`.
std::vector<std::string> assignedBadges();
/// Sets the Finder's selection; `nullopt` leaves none.
void select(const std::optional<std::vector<std::string>>& paths);
/// Title, action and image name of each entry of a menu.
std::vector<std::array<std::string, 3>> entriesOf(const platform::NSMenu& menu);

/// A loopback port where a peer accepts one connection, and one where nobody listens.
std::uint32_t listen();
std::uint32_t unusedPort();

/// The peer sends bytes, closes its sending side, or resets the connection.
void peerSends(const std::string& bytes);
void peerCloses();
void peerResets();
/// What the peer has received so far.
std::string peerReceived();
/// Whether the peer sees that the connection is closed.
bool peerSeesEnd();

/// Runs the run loop until the condition holds; returns false if it does not within ten seconds.
bool runUntil(const std::function<bool()>& condition);
/// Runs the run loop until it has delivered everything.
void settle();

} // namespace contract

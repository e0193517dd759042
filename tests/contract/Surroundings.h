#pragma once

// What the contract tests need to know and to do outside the contracts. Every back end's test
// program defines these functions once, so that one set of tests holds all back ends to the same
// behaviour.

#include "platform/AppKit.h"
#include "platform/Foundation.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace contract {

/// Makes everything new before a test, and tidies up after it.
void setUp();
void tearDown();

/// Stores settings for the next opening of `suiteName`.
inline constexpr std::string_view suiteName = "com.example.contract";
void storeSettings(const platform::NSDictionary& settings);
/// Has the next opening of the suite fail.
void breakSettings();

/// What was printed, and logged, since the set-up. Logged lines are without time and name.
std::string printed();
std::vector<std::string> logged();

/// What the Finder was told.
std::vector<std::string> watchedPaths();
/// Identifier and label of each registered badge.
std::map<std::string, std::string> badgeLabels();

/// Makes a selection the Finder's, or takes it away.
void select(const std::optional<std::vector<std::string>>& paths);
/// The badge identifiers assigned since the set-up.
std::vector<std::string> assignedBadges();
/// Title, action and image name of each entry of a menu.
std::vector<std::array<std::string, 3>> entriesOf(const platform::NSMenu& menu);

/// Makes an item with the given attributes, which are ones that the platform lets a user set, and
/// gives its path; none when the file system here has no extended attributes.
std::optional<std::string> itemWithAttributes(const std::vector<std::string>& names);
/// The path of an item that does not exist.
std::string missingItem();

/// A port of the loopback where a peer accepts one connection, and one where nobody does.
std::uint32_t listen();
std::uint32_t unusedPort();

/// The accepted peer writes, closes its direction only, closes, or resets.
void peerSends(const std::string& bytes);
void peerCloses();
void peerResets();
/// What the peer has received so far.
std::string peerReceived();
/// Whether the peer can see that the connection has been closed.
bool peerSeesEnd();

/// Runs the run loop until the condition holds; gives false when it does not within a few seconds.
bool runUntil(const std::function<bool()>& condition);
/// Runs the run loop as long as it has something to deliver, and a moment longer.
void settle();

} // namespace contract

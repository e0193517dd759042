#pragma once

#include "extension/FinderSync.h"
#include "platform/recording/Recording.h"

#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tests {

using platform::recording::script;
using platform::recording::world;

/// A test of the extension on the recording platform.
class RecordingTest : public testing::Test {
protected:
    RecordingTest() { platform::recording::reset(); }
    ~RecordingTest() override {
        extension.reset();
        platform::recording::reset();
    }
    RecordingTest(const RecordingTest&) = delete;
    RecordingTest& operator=(const RecordingTest&) = delete;

    /// Creates and starts the extension, with a companion that listens on the port it will use.
    template <typename Extension = findersync::FinderSync> Extension& start() {
        world().listeningPorts.insert(61842);
        auto created = std::make_unique<Extension>();
        Extension& started = *created;
        extension = std::move(created);
        EXPECT_EQ(started.init(), &started);
        return started;
    }

    /// Starts the extension and lets the link open. `calls` gives only what is recorded afterwards.
    template <typename Extension = findersync::FinderSync> Extension& startConnected() {
        Extension& started = start<Extension>();
        platform::recording::runAll();
        forgetCalls();
        return started;
    }

    /// Lets one read of the extension return these bytes.
    static void receive(std::string bytes) {
        platform::recording::peerSends(std::move(bytes));
        platform::recording::runAll();
    }

    /// The companion closes the link.
    static void closeLink() {
        platform::recording::peerCloses();
        platform::recording::runAll();
    }

    /// Selects the items with these paths in the Finder.
    static void select(const std::vector<std::string>& paths) {
        script().selection.emplace();
        for (const std::string& path : paths)
            script().selection->push_back(platform::recording::makeURL("file://" + path, path));
    }

    /// Expects that `act` ends the process with a fatal error, and that its reason is written last.
    template <typename Act> static void expectFatal(const Act& act, const std::string& reason) {
        std::string expression = "fatal error: ";
        for (const char character : reason) {
            if (std::string_view(".[{}()\\*+?|^$").find(character) != std::string_view::npos)
                expression += '\\';
            expression += character;
        }
        EXPECT_EXIT(act(), testing::KilledBySignal(SIGABRT), expression + "\n$");
    }

    /// Makes `calls` give only what is recorded from now on.
    void forgetCalls() { firstCall = platform::recording::calls().size(); }

    /// What was recorded since `startConnected` or `forgetCalls`.
    [[nodiscard]] std::vector<std::string> calls() const {
        const auto& all = platform::recording::calls();
        return {all.begin() + static_cast<std::ptrdiff_t>(firstCall), all.end()};
    }

    /// The arguments of the recorded calls of one operation, such as "print: ".
    [[nodiscard]] std::vector<std::string> calls(std::string_view operation) const {
        std::vector<std::string> arguments;
        for (const std::string& call : calls()) {
            if (call.starts_with(operation))
                arguments.push_back(call.substr(operation.size()));
        }
        return arguments;
    }

    /// Standard output since `startConnected`, byte for byte.
    [[nodiscard]] std::string trace() const {
        std::string text;
        for (const std::string& line : calls("print: "))
            text += line + "\n";
        return text;
    }

    std::unique_ptr<findersync::FinderSync> extension;

    std::size_t firstCall = 0;
};

using Strings = std::vector<std::string>;

} // namespace tests

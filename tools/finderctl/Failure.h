#pragma once

#include <stdexcept>
#include <string>

namespace finderctl {

/// Exit codes of the program, besides EXIT_SUCCESS.
enum class ExitCode { Failed = 1, Usage = 2, NotRunning = 3 };

/// What ends a subcommand early: a message for the user and the exit code.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& message, ExitCode exitCode = ExitCode::Failed)
        : std::runtime_error(message), exitCode_(exitCode) {}

    [[nodiscard]] ExitCode exitCode() const { return exitCode_; }

private:
    ExitCode exitCode_;
};

/// The extension's own refusal of one call. It goes on serving others.
class Refused : public Failure {
public:
    using Failure::Failure;
};

} // namespace finderctl

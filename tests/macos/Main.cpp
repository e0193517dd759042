// Runs tests, some of which are expected to fail with the frameworks that they are built against.

#include "tests/macos/KnownDifferences.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

using tests::KnownDifference;

namespace {

/// Starts a test in a process of its own, which the test may end.
pid_t start(const char* program, const char* test) {
    std::cout.flush();
    const pid_t child = fork();
    if (child != 0)
        return child;
    const int nowhere = open("/dev/null", O_WRONLY);
    (void)dup2(nowhere, STDOUT_FILENO);
    (void)dup2(nowhere, STDERR_FILENO);
    const std::string filter = std::string("--gtest_filter=") + test;
    (void)execl(program, program, filter.c_str(), nullptr);
    _exit(0);
}

bool passes(pid_t child) {
    int status = -1;
    return child < 0 || waitpid(child, &status, 0) != child || status == 0;
}

/// Runs the known differences, all at once, and excludes them from the run that follows. Returns
/// how many of them pass.
int countPassingDifferences(const char* program) {
    std::vector<std::pair<pid_t, const KnownDifference*>> runs;
    std::string& filter = testing::GTEST_FLAG(filter);
    filter += "-";
    for (const KnownDifference& difference : tests::knownDifferences()) {
        if (!std::string_view(program).ends_with(difference.program))
            continue;
        runs.emplace_back(start(program, difference.test), &difference);
        filter.append(difference.test).append(":");
    }
    int passing = 0;
    for (const auto& [child, difference] : runs) {
        const bool isMissing = passes(child);
        std::cout << (isMissing ? "NO DIFFERENCE ANY MORE: " : "known difference: ")
                  << difference->test << ": " << difference->reason << '\n';
        passing += isMissing ? 1 : 0;
    }
    return passing;
}

/// Prints failures once a test has ended: while it runs, standard output may be captured.
class FailureReport : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo& test) override {
        const testing::TestResult& result = *test.result();
        for (int part = 0; part < result.total_part_count(); ++part) {
            const testing::TestPartResult& found = result.GetTestPartResult(part);
            if (found.failed())
                std::cout << test.test_suite_name() << '.' << test.name() << ", line "
                          << found.line_number() << ": " << found.message() << std::endl;
        }
    }
};

} // namespace

/// Without options, expects every test to end as listed. With GoogleTest's options, just runs
/// tests.
int main(int argc, char** argv) {
    const bool isWholeRun = argc == 1;
    testing::InitGoogleTest(&argc, argv);
    // Apple's frameworks cannot be used in a process that was only forked.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new FailureReport);
    const int passing = isWholeRun ? countPassingDifferences(argv[0]) : 0;
    return RUN_ALL_TESTS() == 0 && passing == 0 ? 0 : 1;
}

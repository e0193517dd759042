// Runs tests, some of which are expected to fail with the frameworks that this is built against.

#include "tests/macos/KnownDifferences.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using tests::KnownDifference;

namespace {

/// Whether a test passes in a process of its own, which some of them end.
bool passes(const char* program, const KnownDifference& difference) {
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        (void)dup2(nowhere, STDOUT_FILENO);
        (void)dup2(nowhere, STDERR_FILENO);
        const std::string filter = std::string("--gtest_filter=") + difference.test;
        (void)execl(program, program, filter.c_str(), nullptr);
        _exit(0);
    }
    int status = -1;
    return child < 0 || waitpid(child, &status, 0) != child || status == 0;
}

std::vector<KnownDifference> knownDifferencesIn(std::string_view program) {
    std::vector<KnownDifference> here;
    std::ranges::copy_if(tests::knownDifferences(), std::back_inserter(here),
                         [program](const auto& one) { return program.ends_with(one.program); });
    return here;
}

/// Runs the known differences, and takes them out of the run that follows. Gives how many there are
/// not any more.
int countMissingDifferences(const char* program) {
    int missing = 0;
    std::string& filter = testing::GTEST_FLAG(filter);
    filter += "-";
    for (const KnownDifference& difference : knownDifferencesIn(program)) {
        const bool isMissing = passes(program, difference);
        std::cout << (isMissing ? "NO DIFFERENCE ANY MORE: " : "known difference: ")
                  << difference.test << ": " << difference.reason << '\n';
        missing += isMissing ? 1 : 0;
        filter.append(difference.test).append(":");
    }
    return missing;
}

/// Says what failed tests have found: they may have had standard output for themselves.
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

/// Without options, runs all tests as they are expected to end. With options, any of them.
int main(int argc, char** argv) {
    const bool isWholeRun = argc == 1;
    testing::InitGoogleTest(&argc, argv);
    // Apple's frameworks cannot be used in a process that was only forked.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new FailureReport);
    const int missing = isWholeRun ? countMissingDifferences(argv[0]) : 0;
    return RUN_ALL_TESTS() == 0 && missing == 0 ? 0 : 1;
}

// badge-bench REPETITIONS: what a badge request costs, asked of the object itself, and what writing
// the same log lines bare costs.
//
// Standard input holds the cases: an item's path on a line, its root folders on one line each, and
// an empty line. All cases take turns, that many times. The log goes to standard error, which must
// be a Unix stream socket and the one that $JOURNAL_STREAM names. Prints the number of a case and
// the nanoseconds of a request, bare and by the extension, for each turn, and at the end how many
// bytes have been written to the log.

#include "bench/SystemCalls.h"
#include "extension/FinderSync.h"
#include "platform/linux/BufferedOutput.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <linux/sockios.h>
#include <list>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using findersync::FinderSync;
using findersync::bench::checked;

constexpr std::size_t linesPerTurn = 4'000;

/// Waits until the log's reader has read everything, so that no turn pays for the one before.
void waitForReader() {
    int unread = 1;
    while (unread > 0) {
        checked(::ioctl(STDERR_FILENO, SIOCOUTQ, &unread), "ioctl");
        if (unread > 0)
            std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
}

/// Nanoseconds of a request.
template <typename Request> double measure(std::size_t requests, Request request) {
    waitForReader();
    const auto begin = std::chrono::steady_clock::now();
    for (std::size_t number = 0; number < requests; ++number)
        request();
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begin;
    return time.count() / static_cast<double>(requests);
}

/// One item with its root folders.
class Case {
public:
    Case(const std::string& item, const std::vector<std::string>& roots)
        : item_(platform::fileURLWithPath(item)) {
        // In the form of the journal.
        lines_.push_back("<7>requestBadgeIdentifierForURL: " + item_->description() + "\n");
        for (const std::string& root : roots) {
            lines_.push_back("<7>curpath: " + root + "\n");
            lines_.push_back("<7>path: " + item + "\n");
        }
        requests_ = std::max<std::size_t>(1, linesPerTurn / lines_.size());
        extension_.setPathsOfRootFolders(roots);
    }

    /// Writes the log lines bare, then has the extension write them. Gives how many bytes it
    /// expects in the log.
    std::size_t takeTurn(std::size_t number) {
        const double bare = measure(requests_, [this] { writeLines(); });
        const double real = measure(requests_, [this] {
            extension_.requestBadgeIdentifierForURL(*item_);
            platform::linux_backend::flushStandardStreams(); // as the run loop does before it waits
        });
        std::printf("%zu %.1f %.1f\n", number, bare, real);
        std::size_t bytes = 0;
        for (const std::string& line : lines_)
            bytes += line.size();
        return 2 * requests_ * bytes;
    }

private:
    void writeLines() const {
        for (const std::string& line : lines_) {
            if (::write(STDERR_FILENO, line.data(), line.size()) !=
                static_cast<ssize_t>(line.size()))
                throw std::runtime_error("a log line was not written whole");
        }
    }

    FinderSync::URL item_;
    FinderSync extension_;
    std::vector<std::string> lines_; ///< of one request, ready to be written
    std::size_t requests_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        throw std::invalid_argument("usage: badge-bench REPETITIONS");
    std::list<Case> cases;
    for (std::string item; std::getline(std::cin, item);) {
        std::vector<std::string> roots;
        for (std::string root; std::getline(std::cin, root) && !root.empty();)
            roots.push_back(root);
        cases.emplace_back(item, roots);
    }
    std::size_t bytes = 0;
    for (int left = std::stoi(argv[1]); left > 0; --left) {
        std::size_t number = 0;
        for (Case& test : cases)
            bytes += test.takeTurn(number++);
    }
    std::printf("%zu\n", bytes);
    return EXIT_SUCCESS;
}

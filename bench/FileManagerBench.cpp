// file-manager-bench: the processor time that Caja uses to show a large folder, with the plug-in
// and the extension, beside Caja with an empty plug-in.

#include "bench/AnnouncingCompanion.h"
#include "bench/Caja.h"
#include "bench/Report.h"
#include "bench/SystemCall.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace findersync::bench {

namespace fs = std::filesystem;

namespace {

constexpr int files = 10'000;
constexpr int rootFolders = 5;

/// Caja's processor time differs by a tenth from run to run, and by more on a busy machine. A few
/// pairs can tell no more than that the plug-in keeps it busy.
constexpr double limit = 1.1;
constexpr double wideLimit = 1.5;

/// A folder of many empty files and a few root folders, which are what the window shows first.
class LargeFolder {
public:
    explicit LargeFolder(const Session& session) : path_(session.privateFile("Large folder")) {
        for (int number = 0; number < rootFolders; ++number)
            fs::create_directories(rootFolder(number));
        for (int number = 0; number < files; ++number) {
            const std::string name = "Letter " + std::to_string(number) + ".txt";
            if (!std::ofstream(path_ / name))
                throw std::runtime_error("the folder cannot be filled");
        }
    }
    [[nodiscard]] const fs::path& path() const { return path_; }
    [[nodiscard]] std::string rootFolder(int number) const {
        return path_ / ("Sync " + std::to_string(number));
    }

private:
    fs::path path_;
};

/// The extension's log, which tells of each badge request.
class BadgeLog {
public:
    explicit BadgeLog(const std::string& file)
        : file_(file),
          descriptor_(
              checked(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC,
                             S_IRUSR | S_IWUSR),
                      "open")) {}
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    [[nodiscard]] int requests() const {
        std::ifstream file(file_);
        int count = 0;
        for (std::string line; std::getline(file, line);)
            count += line.find("requestBadgeIdentifierForURL: ") == std::string::npos ? 0 : 1;
        return count;
    }

private:
    std::string file_;
    FileDescriptor descriptor_;
};

class FolderBench {
public:
    explicit FolderBench(const Session& session)
        : session_(session), plugins_(cajaPlugins(session)), folder_(session) {}

    double withOurs() {
        const BadgeLog log(session_.privateFile("badge-log"));
        const AnnouncingCompanion companion(session_, log.descriptor());
        for (int number = 0; number < rootFolders; ++number)
            companion.addFolder(folder_.rootFolder(number));
        companion.waitForMessages(rootFolders);
        const double milliseconds = show("with our plug-in and the extension", plugins_.ours, true);
        if (log.requests() < files + rootFolders)
            throw std::runtime_error("only " + std::to_string(log.requests()) +
                                     " badges have been asked for");
        return milliseconds;
    }
    double withOursAlone() { return show("with our plug-in, no extension", plugins_.ours, false); }
    double withEmpty() { return show("with an empty plug-in", plugins_.empty, false); }
    double withNone() { return show("without plug-ins", plugins_.none, false); }

private:
    /// Milliseconds of processor time that Caja uses until it rests with the folder shown.
    double show(const char* what, const std::string& plugins, bool hasBadges) {
        const Screen screen(session_.privateFile("desktop"));
        const Caja caja(session_, screen, plugins, folder_.path());
        const std::chrono::duration<double, std::milli> used = caja.processorTimeAtRest();
        requireShown(screen, hasBadges);
        (void)std::fprintf(stderr, "Caja %s: %.0f ms\n", what, used.count());
        return used.count();
    }

    /// Throws unless the first root folder's icon is shown, with or without the emblem.
    void requireShown(const Screen& screen, bool hasBadges) {
        if (!emblem_)
            emblem_ = screen.find(emblemColor, emblemEdge);
        if (!emblem_)
            throw std::runtime_error("Caja does not show the badge");
        if ((screen.color(*emblem_) == emblemColor) != hasBadges)
            throw std::runtime_error(
                "Caja shows a badge where there is none, or none where is one");
        // An emblem moves its icon, but not by the height of the icon.
        const Screen::Point icon = {emblem_->x - emblemEdge, emblem_->y + emblemEdge};
        if (screen.color(icon) == screen.color({icon.x - 2 * emblemEdge, icon.y}))
            throw std::runtime_error("Caja does not show the folder");
    }

    const Session& session_;
    CajaPlugins plugins_;
    LargeFolder folder_;
    std::optional<Screen::Point> emblem_; ///< its middle
};

using Times = std::vector<double>;

Times ratios(const Times& times, const Times& bare) {
    Times result;
    std::ranges::transform(times, bare, std::back_inserter(result), std::divides());
    return result;
}

void tell(const char* what, Times times, const Times& bare) {
    Times all = ratios(times, bare);
    std::ranges::sort(all);
    std::ranges::sort(times);
    (void)std::fprintf(stderr,
                       "Caja, %s: %.0f ms of processor time (%.0f-%.0f), ratio %.2f "
                       "(middle half %.2f-%.2f, all %.2f-%.2f)\n",
                       what, median(times), times.front(), times.back(), median(all),
                       all[all.size() / 4], all[all.size() * 3 / 4], all.front(), all.back());
}

int run(const Session& session) {
    FolderBench bench(session);
    (void)bench.withOurs(); // fills the caches, and finds the badge

    Times ours;
    Times empty;
    const int pairs = session.isQuick() ? 3 : 40;
    for (int pair = 0; pair < pairs; ++pair) {
        if (pair % 2 == 0)
            empty.push_back(bench.withEmpty());
        ours.push_back(bench.withOurs());
        if (pair % 2 != 0)
            empty.push_back(bench.withEmpty());
    }
    tell("empty plug-in", empty, empty);
    tell("our plug-in and the extension", ours, empty);
    std::vector<Figure> figures = {{.what = "Caja, 10,000 files: processor time",
                                    .measured = median(ratios(ours, empty)),
                                    .atMost = session.isQuick() ? wideLimit : limit}};
    if (!session.isQuick()) {
        Times alone;
        Times none;
        Times beside;
        for (int round = 0; round < 6; ++round) {
            none.push_back(bench.withNone());
            beside.push_back(bench.withEmpty());
            alone.push_back(bench.withOursAlone());
        }
        tell("our plug-in, no extension", alone, beside);
        tell("no plug-in", none, beside);
        figures.push_back({.what = "Caja, 10,000 files: no extension installed",
                           .measured = median(ratios(alone, beside))});
        figures.push_back({.what = "Caja, 10,000 files: no plug-in at all",
                           .measured = median(ratios(none, beside))});
    }
    return report(figures, true);
}

} // namespace

} // namespace findersync::bench

int main(int argc, char** argv) {
    return findersync::bench::runBench(findersync::bench::run, argc, argv, 900);
}

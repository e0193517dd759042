#include "companion/Messages.h"
#include "companion/Paths.h"
#include "companion/Reports.h"
#include "finder_sync_companion/Companion.h"

#include <utility>

namespace finder_sync {

std::optional<std::string> Connection::nextBlock() {
    if (failed())
        return std::nullopt;
    if (plannedVersion_ != companion_.version())
        plan();
    std::string block;
    for (; nextStep_ < steps_.size(); ++nextStep_) {
        const std::string line = lineOf(steps_[nextStep_]);
        if (block.size() + line.size() > blockSize)
            break;
        block += line;
        noteAsTold(steps_[nextStep_]);
    }
    if (block.empty())
        return std::nullopt;
    block.insert(block.size() - 1, blockSize - block.size(), ' ');
    return block;
}

/// Compares what was told with the companion's state.
void Connection::plan() {
    plannedVersion_ = companion_.version();
    steps_.clear();
    nextStep_ = 0;
    if (companion_.titles() && companion_.titles() != toldTitles_)
        steps_.push_back({StepKind::SetLocale, {}});
    if (companion_.backup() && companion_.backup() != toldBackup_)
        steps_.push_back({StepKind::SetMenuUsage, {}});
    planFolders();
}

void Connection::planFolders() {
    std::unordered_set<std::string_view> told;
    for (const auto& [key, path] : toldFolders_) {
        told.insert(path);
        if (!companion_.hasFolder(path))
            steps_.push_back({StepKind::DeleteFolder, path, key});
    }
    for (const std::string& path : companion_.folders()) {
        if (!told.contains(path))
            steps_.push_back({StepKind::AddFolder, path});
    }
}

std::string Connection::lineOf(const Step& step) const {
    switch (step.kind) {
    // NOLINTBEGIN(bugprone-unchecked-optional-access): there is a step only for what is set
    case StepKind::SetLocale:
        return setLocale(*companion_.titles());
    case StepKind::SetMenuUsage:
        return setMenuUsage(*companion_.backup());
    // NOLINTEND(bugprone-unchecked-optional-access)
    case StepKind::DeleteFolder:
        return deleteFolder(step.path);
    case StepKind::AddFolder:
        return addFolder(step.path);
    }
    return {};
}

void Connection::noteAsTold(const Step& step) {
    switch (step.kind) {
    case StepKind::SetLocale:
        toldTitles_ = companion_.titles();
        break;
    case StepKind::SetMenuUsage:
        toldBackup_ = companion_.backup();
        break;
    case StepKind::DeleteFolder:
        toldFolders_.erase(step.told);
        break;
    case StepKind::AddFolder:
        toldFolders_.emplace_hint(toldFolders_.end(), nextTold_++, step.path);
        break;
    }
}

std::vector<Report> Connection::receive(std::string_view bytes) {
    std::vector<Report> reports;
    while (!failed_) {
        const auto text = splitter_.next(bytes);
        failed_ = splitter_.failed();
        if (!text)
            break;
        Report report{};
        failed_ = parseReport(*text, report);
        const std::size_t count = report.paths.size();
        const std::size_t dropped = dropPathsOutside(report.paths);
        droppedPaths_ += dropped;
        if (!failed_ && (count == 0 || dropped < count))
            reports.push_back(std::move(report));
    }
    return reports;
}

/// Normalizes the paths and removes those inside no folder. Returns how many.
std::size_t Connection::dropPathsOutside(std::vector<std::string>& paths) const {
    for (std::string& path : paths) {
        if (!path.starts_with('/') || path.find('\0') != std::string::npos)
            path.clear();
        else
            normalize(path);
    }
    return std::erase_if(paths, [this](const std::string& path) { return !isInside(path); });
}

/// Whether a normalized path is inside a folder, or is one. The empty text is no path.
bool Connection::isInside(const std::string& path) const {
    const auto isInsideFolder = [&](std::string_view folder) {
        return companion_.hasFolder(folder) &&
               (!resolver_ || isAtOrBelow(resolver_(path), resolver_(std::string(folder))));
    };
    for (std::string_view folder = path; !folder.empty();
         folder.remove_suffix(folder.size() - folder.rfind('/'))) {
        if (isInsideFolder(folder))
            return true;
    }
    return !path.empty() && isInsideFolder("/");
}

} // namespace finder_sync

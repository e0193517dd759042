#include "file-managers/thunar/AnnouncedFolders.h"

#include "file-managers/Limits.h"
#include "file-managers/gtk/Handles.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <unordered_set>
#include <utility>

namespace file_managers {

namespace {

/// Nothing unless the path is absolute.
std::string urlOf(std::string_view path) {
    if (!path.starts_with('/'))
        return {};
    const Object<GFile> file(g_file_new_for_path(path.data()));
    return Text(g_file_get_uri(file.get())).get();
}

/// Thunar takes an emblem that begins with "emblem-" for the name of an icon, and the record of
/// emblems separates names by white space.
bool isIconName(const std::string& badge) {
    return !badge.empty() &&
           std::ranges::all_of(badge, [](char each) { return g_ascii_isgraph(each) != FALSE; });
}

} // namespace

AnnouncedFolders::AnnouncedFolders(ExtensionProxy& extension, FolderEmblems& emblems)
    : extension_(extension), emblems_(emblems) {
    extension_.observeRootFolders([this](const FolderNames&) { read_.request(); });
    read_.request();
}

AnnouncedFolders::~AnnouncedFolders() {
    emblems_.removeUnless(extension_.busName(), [](const std::string&) { return false; });
}

void AnnouncedFolders::requestPaths() {
    extension_.requestPathsOfRootFolders([this](auto paths) {
        if (paths)
            read(*paths);
        else
            finish(false);
    });
}

/// A folder that stays keeps its badge. One that had none is asked about again: it may have been
/// withdrawn for a while.
void AnnouncedFolders::read(const std::vector<std::string_view>& paths) {
    std::unordered_set<std::size_t> announced; // hashes, since lists may be long
    unknown_.clear();
    for (const std::string_view path : paths) {
        std::string url = urlOf(path);
        announced.insert(std::hash<std::string>()(url));
        if (!emblems_.has(url, extension_.busName()) && extension_.watches(url.c_str()))
            unknown_.push_back(std::move(url));
    }
    emblems_.removeUnless(extension_.busName(), [&announced](const std::string& url) {
        return announced.contains(std::hash<std::string>()(url));
    });
    requestBadges();
}

void AnnouncedFolders::requestBadges() {
    std::vector<std::string> urls;
    std::size_t size = 0;
    while (!unknown_.empty() && urls.size() < batchSize) {
        size += unknown_.back().size();
        if (size > maxBatchSize && !urls.empty())
            break;
        urls.push_back(std::move(unknown_.back()));
        unknown_.pop_back();
    }
    if (!urls.empty()) {
        extension_.requestBadges(urls,
                                 [this, urls](const auto& badges) { answered(urls, badges); });
        return;
    }
    finish(true);
}

void AnnouncedFolders::answered(const std::vector<std::string>& urls,
                                const std::vector<std::string>& badges) {
    if (badges.size() != urls.size()) {
        finish(false);
        return;
    }
    for (std::size_t index = 0; index < urls.size(); ++index) {
        if (isIconName(badges[index]))
            emblems_.add(urls[index], extension_.busName(),
                         "emblem-" + extension_.iconPrefix() + badges[index]);
    }
    requestBadges();
}

/// What could not be read is read anew after a pause.
void AnnouncedFolders::finish(bool isRead) {
    isReading_ = !isRead;
    if (!isRead) {
        isOutdated_ = false;
        retry_.start(backoff_.next());
        return;
    }
    backoff_.reset();
    if (std::exchange(isOutdated_, false))
        read_.request();
}

} // namespace file_managers

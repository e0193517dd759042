#include "finder_sync_companion/Companion.h"

#include "companion/Messages.h"
#include "companion/Paths.h"

#include <cstdio>
#include <utility>

namespace finder_sync {

namespace {

std::optional<Reason> reasonToRefuse(std::string_view path) {
    if (!path.starts_with('/'))
        return Reason::NotAbsolute;
    if (!isUTF8(path))
        return Reason::NotUTF8;
    if (path.find('\0') != std::string_view::npos)
        return Reason::HoldsNUL;
    if (addFolder(path).size() > blockSize)
        return Reason::TooLong;
    if (!isNormal(path))
        return Reason::NotNormalized;
    return std::nullopt;
}

const char* predicateOf(Reason reason) {
    switch (reason) {
    case Reason::NotAbsolute:
        return " is not an absolute path";
    case Reason::NotUTF8:
        return " is not UTF-8";
    case Reason::HoldsNUL:
        return " holds a NUL character";
    case Reason::TooLong:
        return " is too long: its message would exceed 1,024 bytes";
    case Reason::NotNormalized:
        return R"( is not as the file system spells it: it has a needless "/", "." or "..")";
    }
    return "";
}

} // namespace

std::string Refusal::message() const {
    if (isUTF8(path))
        return path + predicateOf(reason);
    std::string text;
    for (const char byte : path) {
        char escape[5];
        const auto number = static_cast<unsigned char>(byte);
        (void)std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(number));
        text += number < 0x80 ? std::string(1, byte) : escape;
    }
    return text + predicateOf(reason);
}

std::vector<Refusal> Companion::setFolders(std::vector<std::string> paths) {
    std::vector<Refusal> refusals;
    const std::vector<std::string> former = std::exchange(folders_, {});
    const std::unordered_set<std::string_view> accepted = std::exchange(lookup_, {}); // of `former`
    folders_.reserve(paths.size()); // so that the texts in `lookup_` stay in their places
    for (std::string& path : paths) {
        if (const auto reason = accepted.contains(path) ? std::nullopt : reasonToRefuse(path))
            refusals.push_back({std::move(path), *reason});
        else if (!lookup_.contains(path))
            lookup_.insert(folders_.emplace_back(std::move(path)));
    }
    noteChange();
    return refusals;
}

std::vector<Refusal> Companion::setTitles(Titles titles) {
    std::vector<Refusal> refusals;
    const Titles former = titles_.value_or(Titles());
    const auto check = [&](const char* key, std::string Titles::* title) {
        if (isUTF8(titles.*title))
            return;
        refusals.push_back({key, Reason::NotUTF8});
        titles.*title = former.*title;
    };
    check("shareContactTitle", &Titles::shareContact);
    check("shareViaUrlTitle", &Titles::shareViaUrl);
    check("backupTitle", &Titles::backup);
    fitIntoBlock(titles);
    titles_ = std::move(titles);
    noteChange();
    return refusals;
}

void Companion::setBackup(bool isShown) {
    backup_ = isShown;
    noteChange();
}

void Companion::noteChange() {
    ++version_;
    if (watcher_)
        watcher_();
}

} // namespace finder_sync

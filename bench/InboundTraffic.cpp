#include "bench/InboundTraffic.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace findersync::bench {

namespace {

using Lines = std::array<std::string, Traffic::linesPerBurst>;

struct Folders {
    std::string_view first, second, third;
    std::string_view secondSpelledOtherwise; ///< canonically equivalent to `second`
    std::string_view guest;                  ///< added and deleted within the burst
    std::string_view stranger;               ///< deleted without being there
};

struct Titles {
    std::string_view shareContact, shareViaUrl, backup;
};

std::string folderCommand(std::string_view type, std::string_view path) {
    return "{\"type\":\"" + std::string(type) + "\",\"path\":\"" + std::string(path) + "\"}";
}

std::string menuUsageCommand(std::string_view displayBackup) {
    return R"({"type":"set_menu_usage","displayBackup":")" + std::string(displayBackup) + "\"}";
}

std::string localeCommand(const Titles& titles) {
    return R"({"type":"set_locale","shareContactTitle":")" + std::string(titles.shareContact) +
           R"(","shareViaUrlTitle":")" + std::string(titles.shareViaUrl) + R"(","backupTitle":")" +
           std::string(titles.backup) + "\"}";
}

Lines commands(const Folders& folders, const Titles& titles) {
    return {
        folderCommand("add_folder", folders.first),
        folderCommand("add_folder", folders.second),
        folderCommand("add_folder", folders.third),
        folderCommand("add_folder", folders.guest),
        menuUsageCommand("1"),
        localeCommand(titles),
        folderCommand("add_folder", folders.secondSpelledOtherwise),
        folderCommand("del_folder", folders.guest),
        folderCommand("del_folder", folders.stranger),
        menuUsageCommand("0"),
    };
}

/// The lines with spaces added to the shortest ones, which JSON allows, until they fill a burst.
std::string burstOf(Lines lines) {
    std::size_t size = lines.size(); // the line feeds
    for (const std::string& line : lines)
        size += line.size();
    if (size > Traffic::burstSize)
        throw std::logic_error("the commands do not fit into one burst");
    for (; size < Traffic::burstSize; ++size)
        std::ranges::min_element(lines, {}, &std::string::size)->push_back(' ');
    std::string burst;
    for (const std::string& line : lines)
        burst.append(line).append("\n");
    return burst;
}

std::string traceOf(const std::string& burst) {
    return "receiving\nserver said: " + burst +
           "\n"
           "type - add_folder\nnew path is at index 0\n"
           "type - add_folder\nnew path is at index 1\n"
           "type - add_folder\nnew path is at index 2\n"
           "type - add_folder\n"
           "type - set_menu_usage\n"
           "type - set_locale\n"
           "type - add_folder\nnew path is at index 1\n"
           "type - del_folder\n"
           "type - del_folder\n"
           "type - set_menu_usage\n";
}

constexpr Folders asciiFolders = {
    .first = "/home/anna/Documents/Projects/Quarterly reports/2026/First quarter",
    .second = "/home/anna/Pictures/Holidays/2025/Summer at the lake/Selected",
    .third = "/home/anna/Music/Recordings/Live sessions/Unreleased/2024",
    .secondSpelledOtherwise = "/home/anna/Pictures/Holidays/2025/Summer at the lake/Selected",
    .guest = "/media/anna/BACKUP/Shared with the team/Customer documents",
    .stranger = "/media/anna/BACKUP/Shared with the team/Archive of 2019",
};
constexpr Titles asciiTitles = {"Share with contacts", "Share by link", "Back up"};

// The second spelling has its accents as combining characters, the way some file systems keep them.
constexpr Folders nonASCIIFolders = {
    .first = "/home/anna/Dokumente/Verträge/Straße der Blumen/Übergabe/März",
    .second = "/home/anna/Bilder/Städte/Köln und Düsseldorf/Brücken/Dächer",
    .third = "/home/anna/Музыка/Записи/Концерты/Новые",
    .secondSpelledOtherwise =
        "/home/anna/Bilder/Sta\u0308dte/Ko\u0308ln und Du\u0308sseldorf/Bru\u0308cken/Da\u0308cher",
    .guest = "/media/anna/Sicherung/Für alle/Entwürfe/写真と書類",
    .stranger = "/media/anna/Sicherung/Für niemanden/Größere Pläne",
};
constexpr Titles nonASCIITitles = {"Mit Kontakten teilen …", "Link für Gäste", "Поделиться"};

Traffic trafficOf(std::string_view name, const Folders& folders, const Titles& titles) {
    const std::string burst = burstOf(commands(folders, titles));
    return {.name = name, .burst = burst, .trace = traceOf(burst)};
}

} // namespace

std::optional<Traffic> trafficWithName(std::string_view name) {
    if (name == "ascii")
        return trafficOf("ascii", asciiFolders, asciiTitles);
    if (name == "non-ascii")
        return trafficOf("non-ascii", nonASCIIFolders, nonASCIITitles);
    return std::nullopt;
}

} // namespace findersync::bench

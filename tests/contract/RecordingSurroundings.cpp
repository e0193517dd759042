#include "platform/recording/Recording.h"
#include "tests/contract/Surroundings.h"

namespace contract {

namespace recording = platform::recording;

namespace {

/// The arguments of every call of an operation.
std::vector<std::string> recorded(std::string_view operation) {
    std::vector<std::string> arguments;
    for (const std::string& call : recording::calls()) {
        if (call.starts_with(operation))
            arguments.push_back(call.substr(operation.size()));
    }
    return arguments;
}

} // namespace

void setUp() {
    recording::reset();
}

void tearDown() {
    recording::reset();
}

void storeSettings(const platform::NSDictionary& settings) {
    recording::script().settings = settings;
}

void breakSettings() {
    recording::script().suiteOpens = false;
    recording::script().suiteFailure = "broken on purpose";
}

std::string printed() {
    std::string text;
    for (const std::string& line : recorded("print: "))
        text += line + "\n";
    return text;
}

std::vector<std::string> logged() {
    std::vector<std::string> lines;
    for (std::string line : recorded("NSLog: ")) {
        const auto arrow = line.find(" <- ");
        std::string format = line.substr(0, arrow);
        lines.push_back(format.replace(format.find("%@"), 2, line.substr(arrow + 4)));
    }
    return lines;
}

std::vector<std::string> watchedPaths() {
    std::vector<std::string> paths;
    for (const auto& url : recording::world().directoryURLs)
        paths.push_back(url->path().value_or(""));
    return paths;
}

std::map<std::string, std::string> badgeLabels() {
    std::map<std::string, std::string> labels;
    for (const auto& [identifier, badge] : recording::world().badges)
        labels.emplace(identifier, badge.label);
    return labels;
}

void select(const std::optional<std::vector<std::string>>& paths) {
    recording::script().selection.reset();
    if (!paths)
        return;
    recording::script().selection.emplace();
    for (const std::string& path : *paths)
        recording::script().selection->push_back(platform::fileURLWithPath(path));
}

std::vector<std::string> assignedBadges() {
    std::vector<std::string> identifiers;
    for (const auto& assignment : recording::world().assignments)
        identifiers.push_back(assignment.identifier);
    return identifiers;
}

std::vector<std::array<std::string, 3>> entriesOf(const platform::NSMenu& menu) {
    std::vector<std::array<std::string, 3>> entries;
    for (const auto& item : recording::itemsOf(menu))
        entries.push_back({item.title, item.action, item.image});
    return entries;
}

std::uint32_t listen() {
    recording::world().listeningPorts.insert(5000);
    return 5000;
}

std::uint32_t unusedPort() {
    return 5001;
}

void peerSends(const std::string& bytes) {
    recording::peerSends(bytes);
}

void peerCloses() {
    recording::peerCloses();
}

void peerResets() {
    recording::peerResets();
}

std::string peerReceived() {
    return recording::world().received;
}

bool peerSeesEnd() {
    return !recording::inputStream() && !recording::outputStream();
}

bool runUntil(const std::function<bool()>& condition) {
    while (!condition()) {
        if (!recording::runOnce())
            return condition();
    }
    return true;
}

void settle() {
    recording::runAll();
}

} // namespace contract

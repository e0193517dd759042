// finderctl doctor: looks for what keeps badges and menus from being shown.

#include "tools/finderctl/Doctor.h"

#include "tools/console/JSON.h"
#include "tools/console/Text.h"
#include "tools/finderctl/ExtensionProxy.h"
#include "tools/finderctl/Failure.h"
#include "tools/finderctl/Output.h"
#include "tools/finderctl/Subcommands.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <sched.h>
#include <set>
#include <string_view>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace finderctl {

namespace {

constexpr std::string_view suffix = ".FinderSync";

std::string restartCommand() {
    return findersync::controlProgram + std::string(" restart");
}

/// Whether the user may make user namespaces with mounts of their own, which the unit's sandbox
/// needs.
bool hasUserNamespaces() {
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
                        ::mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0
                    ? EXIT_SUCCESS
                    : EXIT_FAILURE);
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && status == EXIT_SUCCESS;
}

/// The command that has a unit do without user namespaces, by the drop-in that is installed with
/// this program.
std::string lessSandbox(const std::string& unit) {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::string dropIn = program.parent_path().parent_path() / "share" /
                               findersync::productName / "less-sandbox.conf";
    const std::string folder = "~/.config/systemd/user/" + unit + ".d";
    return "its sandbox needs user namespaces, which this system denies you; to give up that part "
           "of it: mkdir -p " +
           folder + " && ln -sf " + dropIn + " " + folder +
           " && systemctl --user daemon-reload && systemctl --user restart " + unit;
}

/// Names on the bus, from one of its methods that list them.
std::vector<std::string> namesOnBus(const ExtensionProxy& extension, const char* member) {
    return readList(extension.call(extension.newCallOfBus(member)).get());
}

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::ranges::find(names, name) != names.end();
}

Finding examineService(const ExtensionProxy& extension) {
    if (contains(namesOnBus(extension, "ListActivatableNames"), extension.name()))
        return {"service", "the session bus can start " + extension.name(), ""};
    return {"service", "the session bus does not know how to start " + extension.name(),
            "install its package; from another prefix, have share/ in XDG_DATA_DIRS when you log "
            "in"};
}

Finding examineStart(const ExtensionProxy& extension) {
    if (extension.isRunning())
        return {"start", "the extension is running", ""};
    try {
        extension.start();
    } catch (const Failure& failure) {
        return {"start", failure.what(),
                hasUserNamespaces()
                    ? "read its log: journalctl --user -u " + extension.name() + ".service"
                    : lessSandbox(extension.name() + ".service")};
    }
    return {"start", "the extension was not running, and has been started", ""};
}

Finding examineLink(const ExtensionProxy& extension) {
    const std::string state = extension.linkState();
    if (state == "open")
        return {"link", "the companion application is connected", ""};
    return {"link", "the link to the companion application is not open: " + state,
            "start the companion application, then: " + restartCommand()};
}

Finding examineProduct(const ExtensionProxy& extension, const std::string& name, bool isRunning) {
    if (!isRunning)
        return {"product", name + " is installed, not running", ""};
    const unsigned port = ExtensionProxy(name).serverPort();
    const std::string text = name + " uses port " + std::to_string(port);
    if (extension.isRunning() && port == extension.serverPort())
        return {"product", text + ", and so does " + extension.name(),
                "give one of them another \"ServerPort\" in its settings"};
    return {"product", text, ""};
}

/// A finding from an examination that fails when the extension does not answer.
Finding finding(const std::string& subject, const std::string& remedy,
                const std::function<Finding()>& examine) {
    try {
        return examine();
    } catch (const Failure& failure) {
        return {subject, failure.what(), remedy};
    }
}

/// The other products: the names on the bus that end like the extension's.
std::vector<Finding> examineProducts(const ExtensionProxy& extension) {
    const std::vector<std::string> running = namesOnBus(extension, "ListNames");
    const std::vector<std::string> activatable = namesOnBus(extension, "ListActivatableNames");
    std::set<std::string> names(running.begin(), running.end());
    names.insert(activatable.begin(), activatable.end());
    names.erase(extension.name());
    std::erase_if(names, [](const std::string& name) { return !name.ends_with(suffix); });
    std::vector<Finding> findings;
    findings.reserve(names.size() + 1);
    for (const std::string& name : names)
        findings.push_back(finding("product", "end or update " + name, [&] {
            return examineProduct(extension, name, contains(running, name));
        }));
    if (findings.empty())
        findings.push_back({"product", "no other product is installed", ""});
    return findings;
}

std::vector<Finding> examine(const ExtensionProxy& extension) {
    const std::string remedy = restartCommand() + ", once it starts";
    std::vector<Finding> findings = {
        examineService(extension), examineStart(extension),
        finding("port", remedy, [&] { return examinePort(extension.serverPort()); }),
        finding("link", remedy, [&] { return examineLink(extension); }),
        examineIcons(extension.name())};
    std::ranges::move(examineFileManagers(), std::back_inserter(findings));
    std::ranges::move(examineProducts(extension), std::back_inserter(findings));
    return findings;
}

std::string textOf(const std::vector<Finding>& findings) {
    const bool hasColor = console::wantsColor(STDOUT_FILENO);
    std::string text;
    for (const Finding& finding : findings) {
        const bool isGood = finding.remedy.empty();
        const std::string mark = isGood ? "ok  " : "bad ";
        text += text.empty() ? "" : "\n";
        text += hasColor ? (isGood ? "\033[32m" : "\033[31m") + mark + "\033[0m" : mark;
        text += finding.subject + ": " + console::printable(finding.text);
        text += isGood ? "" : "; " + console::printable(finding.remedy);
    }
    return text;
}

std::string jsonOf(const std::vector<Finding>& findings) {
    std::vector<std::string> elements;
    elements.reserve(findings.size());
    for (const Finding& finding : findings)
        elements.push_back(
            console::jsonObject({{"subject", console::jsonString(finding.subject)},
                                 {"isGood", finding.remedy.empty() ? "true" : "false"},
                                 {"text", console::jsonString(finding.text)},
                                 {"remedy", console::jsonString(finding.remedy)}}));
    return console::jsonArray(elements);
}

} // namespace

int doctor(const Arguments& arguments) {
    const ExtensionProxy extension(arguments.busName);
    const std::vector<Finding> findings = examine(extension);
    print(arguments.form == Form::JSON ? jsonOf(findings) : textOf(findings));
    const bool isGood = std::ranges::all_of(findings, &std::string::empty, &Finding::remedy);
    return isGood ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace finderctl

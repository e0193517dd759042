#include "bench/Session.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <sys/prctl.h>
#include <unistd.h>

namespace findersync::bench {

namespace fs = std::filesystem;

namespace {

constexpr const char* directoryVariable = "FINDER_SYNC_BENCH_DIRECTORY";

constexpr int cannotMeasure = 2;

} // namespace

Session::Session(int argc, char** argv) {
    isQuick_ = argc == 3 && std::string_view(argv[1]) == "--quick";
    if (argc != (isQuick_ ? 3 : 2))
        throw std::invalid_argument("usage: BENCH [--quick] EXTENSION");
    extension_ = argv[argc - 1];
    const char* const directory = std::getenv(directoryVariable);
    if (directory == nullptr)
        throw std::runtime_error("no private session: start this bench with bench/run");
    directory_ = directory;
}

std::vector<std::string> Session::extension(std::uint16_t port) const {
    const fs::path folder = fs::path(directory_) / FINDER_SYNC_GROUP;
    fs::create_directories(folder);
    std::ofstream settings(folder / "settings.json");
    settings << "{\"ServerPort\": " << port << "}\n";
    if (!settings.flush())
        throw std::runtime_error("the settings cannot be written");
    return {extension_};
}

std::vector<std::string> Session::benchProgram(const std::string& name, std::uint16_t port) const {
    return {benchFile(name), std::to_string(port)};
}

std::string Session::benchFile(const std::string& name) const {
    return fs::read_symlink("/proc/self/exe").parent_path() / name;
}

std::string Session::privateFile(const std::string& name) const {
    return fs::path(directory_) / name;
}

int runBench(int (*bench)(const Session&), int argc, char** argv, unsigned limitInSeconds) {
    (void)::alarm(limitInSeconds);
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL); // nobody would read the figures any more
    try {
        const Session session(argc, argv);
        if (::setenv("XDG_CONFIG_HOME", session.privateFile("").c_str(), 1) != 0)
            throw std::runtime_error("the environment cannot be changed");
        return bench(session);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return cannotMeasure;
    }
}

} // namespace findersync::bench

#pragma once

// A session of the tests' own: its folders, its bus, and what runs on it.

#include "tests/file-managers/FileManagerUnderTest.h"

#include "Names.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <utility>

/// A process that is killed with this object. Its standard output is collected.
class ChildProcess {
public:
    ChildProcess(std::string program, Texts arguments) {
        std::vector<char*> words = {program.data()};
        for (std::string& argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe");
        posix_spawn_file_actions_t actions;
        (void)::posix_spawn_file_actions_init(&actions);
        (void)::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        const int error =
            ::posix_spawnp(&process_, words[0], &actions, nullptr, words.data(), environ);
        (void)::posix_spawn_file_actions_destroy(&actions);
        (void)::close(ends[1]);
        output_ = ends[0];
        (void)::fcntl(output_, F_SETFL, O_NONBLOCK);
        if (error != 0)
            throw std::system_error(error, std::generic_category(), program);
    }
    ~ChildProcess() {
        end();
        (void)::close(output_);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void signal(int number) const { (void)::kill(process_, number); }

    void end() {
        if (process_ == 0)
            return;
        signal(SIGKILL);
        (void)::waitpid(std::exchange(process_, 0), nullptr, 0);
    }

    /// Everything that it has written so far.
    const std::string& output() {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = ::read(output_, buffer, sizeof buffer)) > 0)
            text_.append(buffer, static_cast<std::size_t>(count));
        return text_;
    }

    /// Whether it writes these lines, sooner or later.
    bool writes(const std::string& lines) {
        return runUntil([&] { return output().find(lines + "\n") != std::string::npos; });
    }

private:
    pid_t process_ = 0;
    int output_ = -1;
    std::string text_;
};

class ExtensionProcess : public ChildProcess {
public:
    /// The arguments of ScriptedExtension.
    explicit ExtensionProcess(Texts arguments)
        : ChildProcess(FINDER_SYNC_SCRIPTED_EXTENSION, std::move(arguments)) {}

    /// How often it has written a line.
    int timesWritten(const std::string& expected) {
        int times = 0;
        std::istringstream lines(output());
        for (std::string line; std::getline(lines, line);)
            times += line == expected ? 1 : 0;
        return times;
    }

    /// The number of items whose badges were requested so far.
    int requestedBadges() {
        int sum = 0;
        std::istringstream lines(output());
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with("badges "))
                sum += std::stoi(line.substr(7));
        return sum;
    }
};

/// The environment of this process. The only services are those that a test adds, and those that
/// the file manager needs.
class Session {
public:
    Session() {
        for (const char* folder : {"services", "none", "config", "cache", "run"})
            std::filesystem::create_directories(folder_ / folder);
        std::filesystem::permissions(folder_ / "run", std::filesystem::perms::owner_all);
        set("HOME", "none");
        set("XDG_DATA_HOME", "none");
        set("XDG_DATA_DIRS", "none");
        set("XDG_CONFIG_HOME", "config");
        set("XDG_CACHE_HOME", "cache");
        set("XDG_RUNTIME_DIR", "run");
        (void)::unsetenv("DISPLAY");
        for (const std::string& service : FileManager::services)
            std::filesystem::create_symlink("/usr/share/dbus-1/services/" + service + ".service",
                                            folder_ / "services" / (service + ".service"));
        std::ofstream(folder_ / "bus.conf")
            << "<busconfig><type>session</type><auth>EXTERNAL</auth>"
            << "<listen>unix:dir=" << (folder_ / "run").string() << "</listen>"
            << "<servicedir>" << (folder_ / "services").string() << "</servicedir>"
            << "<policy context='default'><allow send_destination='*'/>"
            << "<allow receive_sender='*'/><allow own='*'/></policy>"
            << "</busconfig>";
        bus_ = std::make_unique<ChildProcess>("dbus-daemon",
                                              Texts{"--config-file", folder_ / "bus.conf",
                                                    "--print-address", "--nofork", "--nopidfile"});
        for (int tries = 0; !bus_->output().ends_with('\n'); ++tries) {
            if (tries == 10000)
                throw std::runtime_error("the bus does not start");
            (void)::usleep(1000);
        }
        std::string address = bus_->output();
        address.pop_back();
        (void)::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    }
    ~Session() {
        bus_.reset();
        // What the bus has just started may still write.
        std::error_code error;
        while (std::filesystem::remove_all(folder_, error), error == std::errc::directory_not_empty)
            (void)::usleep(1000);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }
    [[nodiscard]] const ChildProcess& bus() const { return *bus_; }

    /// The bus notices by itself, but may answer others before it has looked.
    static void reloadServices() {
        if (std::system("dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus /"
                        " org.freedesktop.DBus.ReloadConfig") != 0)
            throw std::runtime_error("the bus does not reload its services");
    }

private:
    static std::filesystem::path newFolder() {
        std::string folder = std::filesystem::temp_directory_path() / "plugin-tests-XXXXXX";
        if (::mkdtemp(folder.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), folder);
        return folder;
    }

    void set(const char* variable, const char* folder) const {
        (void)::setenv(variable, (folder_ / folder).c_str(), 1);
    }

    std::filesystem::path folder_ = newFolder();
    std::unique_ptr<ChildProcess> bus_;
};

inline std::unique_ptr<Session> session;

/// A service for the bus to start. It leaves a line behind, runs a command, and leaves another line
/// if that succeeds.
class ActivatableExtension {
public:
    explicit ActivatableExtension(const std::string& name = findersync::busName,
                                  const std::string& command = "false") {
        const std::string line = "echo >>" + starts_.string();
        std::ofstream(service_) << "[D-BUS Service]\nName=" << name << "\nExec=/bin/sh -c '" << line
                                << "; " << command << " && " << line << "'\n";
        Session::reloadServices();
    }
    ~ActivatableExtension() {
        std::filesystem::remove(service_);
        std::filesystem::remove(starts_);
        Session::reloadServices();
    }
    ActivatableExtension(const ActivatableExtension&) = delete;
    ActivatableExtension& operator=(const ActivatableExtension&) = delete;

    [[nodiscard]] int starts() const {
        return exists(starts_) ? static_cast<int>(file_size(starts_)) : 0;
    }

private:
    std::filesystem::path service_ = session->folder() / "services/extension.service";
    std::filesystem::path starts_ = session->folder() / "starts";
};

#include "companion/Restart.h"

#include "companion/System.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ; // NOLINT(*-redundant-declaration, *-non-const-global-variables)

namespace finder_sync {

namespace {

/// Starts a program whose output goes to a descriptor. Returns 0 or an errno.
int spawn(std::vector<std::string>& command, int output, pid_t& process) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t files{};
    (void)::posix_spawn_file_actions_init(&files);
    (void)::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    (void)::posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    (void)::posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
    posix_spawnattr_t attributes{};
    (void)::posix_spawnattr_init(&attributes);
    // Which the application blocks or ignores for itself. On a Mac, these functions are macros.
    sigset_t signals{};
    (void)sigemptyset(&signals);
    (void)::posix_spawnattr_setsigmask(&attributes, &signals);
    (void)sigaddset(&signals, SIGPIPE);
    (void)::posix_spawnattr_setsigdefault(&attributes, &signals);
    (void)::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int result =
        ::posix_spawnp(&process, arguments.front(), &files, &attributes, arguments.data(), environ);
    (void)::posix_spawnattr_destroy(&attributes);
    (void)::posix_spawn_file_actions_destroy(&files);
    return result;
}

} // namespace

bool Restart::start(std::vector<std::string> command, std::string& failure) {
    process::Descriptor input;
    const bool isOpen = openPipe(output_, input);
    printed_.clear();
    const int result = isOpen ? spawn(command, input.get(), process_) : errno;
    if (result == 0)
        return true;
    output_.reset();
    failure = command.front() + " cannot be started: " + std::strerror(result);
    return false;
}

bool Restart::hasEnded(std::string& failure) {
    std::array<char, 1024> buffer{};
    const ssize_t count = ::read(output_.get(), buffer.data(), buffer.size());
    if (count > 0)
        printed_.append(buffer.data(), static_cast<std::size_t>(count));
    if (count != 0)
        return false;
    output_.reset();
    int status = 0;
    if (::waitpid(process_, &status, 0) == process_ && status == 0)
        printed_.clear();
    failure = printed_.substr(0, printed_.find_last_not_of('\n') + 1);
    return true;
}

} // namespace finder_sync

// companion-bench EXTENSION FOLDERS RUNS
//
// Tells folders to fresh extensions, by the companion's library and by a bare sender that sends a
// block when the trace shows that the one before was read. Prints a line for each run: the
// milliseconds that either took from the connection until the last folder was handled, and those
// from a further folder's announcement until the session bus knew its badge.

#include "Names.h"
#include "bench/SystemCalls.h"
#include "finder_sync_companion/Server.h"
#include "finder_sync_companion/Settings.h"
#include "process/Descriptor.h"
#include "process/SystemdHandles.h"

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/wait.h>
#include <vector>

namespace {

using findersync::bench::checked;
using Clock = std::chrono::steady_clock;

/// The process under test, whose trace is read.
class Extension {
public:
    explicit Extension(const char* program) {
        std::array<int, 2> ends{};
        checked(::pipe2(ends.data(), O_CLOEXEC), "pipe2");
        trace_.reset(ends[0]);
        const process::Descriptor output(ends[1]);
        posix_spawn_file_actions_t files{};
        ::posix_spawn_file_actions_init(&files);
        ::posix_spawn_file_actions_adddup2(&files, output.get(), STDOUT_FILENO);
        std::string name = program;
        std::array<char*, 2> arguments = {name.data(), nullptr};
        if (::posix_spawn(&process_, program, &files, nullptr, arguments.data(), environ) != 0)
            throw std::runtime_error("the extension cannot be started");
        ::posix_spawn_file_actions_destroy(&files);
    }
    ~Extension() {
        (void)::kill(process_, SIGTERM);
        (void)::waitpid(process_, nullptr, 0);
    }
    Extension(const Extension&) = delete;
    Extension& operator=(const Extension&) = delete;

    [[nodiscard]] int trace() const { return trace_.get(); }

    /// Reads what there is of the trace, waiting for something.
    void read() {
        std::array<char, 65536> buffer; // NOLINT(*-member-init)
        const auto count = checked(::read(trace(), buffer.data(), buffer.size()), "read");
        if (count == 0)
            throw std::runtime_error("the extension has ended");
        text_.append(buffer.data(), static_cast<std::size_t>(count));
        std::string_view left = text_;
        for (auto end = left.find('\n'); end != std::string_view::npos; end = left.find('\n')) {
            folders += left.starts_with("type - add_folder\n") ? 1U : 0U;
            reads += left.starts_with("server said: ") ? 1U : 0U;
            left.remove_prefix(end + 1);
        }
        text_.erase(0, text_.size() - left.size());
    }

    std::size_t folders = 0; ///< that it has handled
    std::size_t reads = 0;

private:
    process::Descriptor trace_;
    pid_t process_ = -1;
    std::string text_;
};

double since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// Serves until the extension has handled so many folders.
void serve(finder_sync::Server& server, Extension& extension, std::size_t folders) {
    while (extension.folders < folders) {
        std::array<pollfd, 2> watched = {
            pollfd{.fd = server.descriptor(), .events = POLLIN, .revents = 0},
            pollfd{.fd = extension.trace(), .events = POLLIN, .revents = 0}};
        checked(::poll(watched.data(), watched.size(), -1), "poll");
        if (watched[0].revents != 0)
            server.dispatch();
        if (watched[1].revents != 0)
            extension.read();
    }
}

bool hasBadge(sd_bus* bus, const std::string& path) {
    process::Message reply;
    const char* badge = nullptr;
    const int result =
        sd_bus_call_method(bus, findersync::busName, findersync::objectPath,
                           findersync::interfaceName, "RequestBadgeIdentifierForURL", nullptr,
                           process::Out(reply), "s", ("file://" + path).c_str());
    return result >= 0 && sd_bus_message_read_basic(reply.get(), 's', &badge) > 0 && *badge != '\0';
}

void writePort(std::uint16_t port) {
    std::string failure;
    if (!finder_sync::writeSettings(findersync::applicationGroup, {{"ServerPort", port}}, failure))
        throw std::runtime_error(failure);
}

struct Bench {
    const char* program;
    std::vector<std::string> folders;

    [[nodiscard]] double bare() const {
        const process::Descriptor listener(
            checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
        sockaddr_in address{};
        socklen_t length = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        checked(::bind(listener.get(), generic, sizeof address), "bind"); // to a free port
        checked(::listen(listener.get(), 1), "listen");
        checked(::getsockname(listener.get(), generic, &length), "getsockname");
        writePort(ntohs(address.sin_port));
        Extension extension(program);
        const process::Descriptor link(
            checked(::accept(listener.get(), nullptr, nullptr), "accept"));
        const auto start = Clock::now();
        finder_sync::Companion companion;
        companion.setFolders(folders);
        finder_sync::Connection connection(companion);
        for (std::size_t sent = 1; const auto block = connection.nextBlock(); ++sent) {
            checked(::send(link.get(), block->data(), block->size(), MSG_NOSIGNAL), "send");
            while (extension.reads < sent)
                extension.read();
        }
        while (extension.folders < folders.size())
            extension.read();
        return since(start);
    }

    void run() const {
        const double bareTime = bare();
        finder_sync::Companion companion;
        companion.setFolders(folders);
        Clock::time_point start;
        finder_sync::Server server(companion, {.onReport = [](const finder_sync::Report&) {},
                                               .onConnected = [&] { start = Clock::now(); }});
        std::string failure;
        if (!server.listen(0, failure))
            throw std::runtime_error(failure);
        writePort(server.port());
        Extension extension(program);
        serve(server, extension, folders.size());
        const double time = since(start);

        process::Bus bus;
        checked(sd_bus_open_user(process::Out(bus)), "sd_bus_open_user");
        if (!hasBadge(bus.get(), folders.front()))
            throw std::runtime_error("the folders have no badges");
        auto more = folders;
        more.emplace_back("/a-further-folder");
        start = Clock::now();
        companion.setFolders(more);
        serve(server, extension, more.size());
        if (!hasBadge(bus.get(), "/a-further-folder"))
            throw std::runtime_error("the further folder has no badge");
        (void)std::printf("%f %f %f\n", bareTime, time, since(start));
    }
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        throw std::invalid_argument("usage: companion-bench EXTENSION FOLDERS RUNS");
    Bench bench{.program = argv[1], .folders = {}};
    for (int number = 0; number < std::stoi(argv[2]); ++number)
        bench.folders.push_back("/home/u/Sync/Projects/Unit-" + std::to_string(number));
    for (int runs = std::stoi(argv[3]); runs > 0; --runs)
        bench.run();
    return EXIT_SUCCESS;
}

#include "finder_sync_companion/Server.h"

#include "companion/Links.h"
#include "companion/Restart.h"
#include "finder_sync_companion/Settings.h"

#include <cstring>
#include <filesystem>
#include <list>
#include <utility>

namespace finder_sync {

namespace {

std::string withoutLinks(const std::string& path) {
    std::error_code error;
    const auto resolved = std::filesystem::weakly_canonical(path, error);
    return error ? std::string() : resolved.string();
}

/// Tells one extension the companion's state, and hands on its reports.
class Told : public Dialogue {
public:
    Told(const Companion& companion, const Server::Callbacks& callbacks)
        : companion_(companion), callbacks_(callbacks), connection_(companion, withoutLinks) {}

    [[nodiscard]] bool hasMore() const override { return toldVersion_ != companion_.version(); }

    [[nodiscard]] std::optional<std::string> nextBlock() override {
        auto block = connection_.nextBlock();
        if (!block)
            toldVersion_ = companion_.version();
        return block;
    }

    [[nodiscard]] std::string receive(std::string_view bytes) override {
        for (const Report& report : connection_.receive(bytes))
            callbacks_.onReport(report);
        return connection_.failed().value_or("");
    }

private:
    const Companion& companion_;
    const Server::Callbacks& callbacks_;
    Connection connection_;
    std::uint64_t toldVersion_ = 0;
};

} // namespace

class Server::Implementation {
public:
    Implementation(Companion& companion, Callbacks callbacks)
        : companion_(companion),
          callbacks_(std::move(callbacks)),
          links_({.onConnected = [this] { return connected(); },
                  .onDisconnected =
                      [this](const Dialogue& dialogue, const std::string& reason) {
                          disconnected(dialogue, reason);
                      }}) {
        companion_.setWatcher([this] { links_.wake(); });
    }
    ~Implementation() { companion_.setWatcher(nullptr); }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    [[nodiscard]] Links& links() { return links_; }
    [[nodiscard]] const Companion& companion() const { return companion_; }
    [[nodiscard]] std::size_t connections() const { return told_.size(); }

    void dispatch() {
        for (const int descriptor : links_.dispatch()) {
            std::string failure;
            if (descriptor == restart_.output() && restart_.hasEnded(failure) &&
                callbacks_.onRestarted)
                callbacks_.onRestarted(failure);
        }
    }

    bool restart(const std::string& group, std::string& failure, const std::string& program) {
        if (!restart_.start({program, "--group", group, "restart"}, failure))
            return false;
        if (links_.watch(restart_.output()) == 0)
            return true;
        failure = "what " + program + " prints cannot be watched";
        return false;
    }

private:
    Dialogue* connected() {
        Told& told = told_.emplace_back(companion_, callbacks_);
        if (callbacks_.onConnected)
            callbacks_.onConnected();
        return &told;
    }

    void disconnected(const Dialogue& dialogue, const std::string& reason) {
        told_.remove_if([&](const Told& told) { return &told == &dialogue; });
        if (callbacks_.onDisconnected)
            callbacks_.onDisconnected(reason);
    }

    Companion& companion_;
    Callbacks callbacks_;
    std::list<Told> told_;
    Links links_;
    Restart restart_;
};

Server::Server(Companion& companion, Callbacks callbacks)
    : implementation_(std::make_unique<Implementation>(companion, std::move(callbacks))) {}

Server::~Server() = default;

bool Server::listen(std::uint16_t port, std::string& failure) {
    const int result = implementation_->links().listen(port);
    if (result != 0)
        failure = "port " + std::to_string(port) +
                  " of 127.0.0.1 cannot be had: " + std::strerror(result);
    return result == 0;
}

std::uint16_t Server::port() const {
    return implementation_->links().port();
}

int Server::descriptor() const {
    return implementation_->links().descriptor();
}

void Server::dispatch() {
    implementation_->dispatch();
}

std::size_t Server::connections() const {
    return implementation_->connections();
}

bool Server::writeSettings(const std::string& group, const std::string& rootFolder,
                           std::string& failure) const {
    Settings settings = {{"ServerPort", port()}, {"RootFolder", rootFolder}};
    const Companion& companion = implementation_->companion();
    if (const auto& titles = companion.titles()) {
        settings["ShareContactTitle"] = titles->shareContact;
        settings["ShareViaUrlTitle"] = titles->shareViaUrl;
        settings["BackupTitle"] = titles->backup;
    }
    if (const auto backup = companion.backup())
        settings["DisplayBackup"] = *backup ? 1 : 0;
    return finder_sync::writeSettings(group, settings, failure);
}

bool Server::restartExtension(const std::string& group, std::string& failure,
                              const std::string& program) {
    return implementation_->restart(group, failure, program);
}

} // namespace finder_sync

#include "tools/companion/Companion.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/epoll.h>

namespace companion {

namespace {

/// Reading commands pauses while more bytes than this wait for an extension that reads slowly.
constexpr std::size_t sizeOfWaitingLines = std::size_t{1024} * 1024;

/// The library stops at far less.
constexpr std::size_t sizeOfReport = std::size_t{64} * 1024 * 1024;

template <typename... Cases> struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <typename... Cases> Overloaded(Cases...) -> Overloaded<Cases...>;

std::string countOfLines(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " line" : " lines");
}

} // namespace

Companion::Companion(sd_event* event, Screen& screen, Options options)
    : event_(event),
      screen_(screen),
      options_(options),
      links_({.onConnected = [this] { return extensionConnected(); },
              .onDisconnected = [this](const finder_sync::Dialogue&,
                                       const std::string& reason) { connectionLost(reason); }}),
      input_(*this),
      splitter_(sizeOfReport) {}

bool Companion::listen(std::uint16_t port, std::string& failure) {
    const int result = links_.listen(port);
    if (result == 0)
        return true;
    failure = "port " + std::to_string(port) + " of 127.0.0.1 ";
    if (result == EADDRINUSE)
        failure += "is in use, perhaps by another companion: end that program, or choose another "
                   "port with --port N (0 takes a free one)";
    else
        failure += std::string("cannot be had: ") + std::strerror(result);
    return false;
}

bool Companion::start(std::string& failure) {
    const auto dispatch = [](sd_event_source*, int, std::uint32_t, void* self) {
        static_cast<Companion*>(self)->links_.dispatch();
        return 0;
    };
    int result = sd_event_add_io(event_, process::Out(linksSource_), links_.descriptor(), EPOLLIN,
                                 dispatch, this);
    if (result < 0) {
        failure = std::string("extensions cannot be served: ") + std::strerror(-result);
        return false;
    }
    screen_.status("listening on 127.0.0.1:" + std::to_string(port()));
    result = input_.serve(event_);
    if (result < 0)
        failure = std::string("standard input cannot be read: ") + std::strerror(-result);
    return result >= 0;
}

void Companion::lineEntered(std::string_view line) {
    ++lineNumber_;
    std::visit(Overloaded{
                   [](const Nothing&) {},
                   [this](const Send& message) { send(message); },
                   [this](const ShowHelp&) {
                       std::string text = helpOnCommands();
                       text.pop_back();
                       screen_.status(text);
                   },
                   [this](const Quit&) { inputEnded(); },
                   [this](const Refusal& refusal) {
                       complain(refusal.reason);
                       if (options_.countsBadLines)
                           exitCode_ = EXIT_FAILURE;
                   },
               },
               parseCommand(line));
}

void Companion::send(const Send& message) {
    if (!message.warning.empty())
        complain(message.warning);
    size_ += lines_.emplace_back(outboundLine(message, options_.isPadded)).size();
    if (isConnected_)
        links_.wake();
    limitWaitingLines();
}

void Companion::complain(const std::string& about) {
    screen_.error("line " + std::to_string(lineNumber_) + ": " + about);
}

void Companion::inputEnded() {
    hasInputEnded_ = true;
    input_.stop();
    if (!hasMore())
        end(exitCode_);
    else if (!isConnected_)
        sayWhatIsMissing();
}

void Companion::terminalClosed() {
    end(EXIT_SUCCESS);
}

void Companion::sayWhatIsMissing() {
    screen_.status("waiting for an extension to connect, to send it " +
                   countOfLines(lines_.size()) + " (interrupt to give up)");
}

finder_sync::Dialogue* Companion::extensionConnected() {
    if (isConnected_) {
        screen_.error("a second extension has connected: closed, since one is served at a time");
        return nullptr;
    }
    screen_.status(wasConnected_ ? "an extension has connected; it knows nothing yet of what was "
                                   "sent to the one before"
                                 : "an extension has connected");
    isConnected_ = true;
    wasConnected_ = true;
    return this;
}

bool Companion::hasMore() const {
    return !lines_.empty() || !isAcknowledged_;
}

std::optional<std::string> Companion::nextBlock() {
    isAcknowledged_ = lines_.empty();
    if (isAcknowledged_) {
        if (hasInputEnded_)
            end(exitCode_);
        return std::nullopt;
    }
    const std::size_t size = lines_.front().size();
    std::string block = lines_.front().substr(sentOfFirst_, finder_sync::blockSize);
    sentOfFirst_ += block.size();
    if (sentOfFirst_ == size) {
        size_ -= size;
        lines_.pop_front();
        sentOfFirst_ = 0;
    }
    limitWaitingLines();
    return block;
}

std::string Companion::receive(std::string_view bytes) {
    std::string failure;
    while (const auto report = splitter_.next(bytes)) {
        failure = print(*report);
        if (!failure.empty())
            break;
    }
    if (const auto& failed = splitter_.failed())
        failure = *failed;
    if (failure.empty())
        return {};
    splitter_ = finder_sync::ReportSplitter(sizeOfReport);
    screen_.error("what the extension has sent is no click report: " + failure +
                  "; the link is closed");
    return "what it sent is no click report";
}

/// Prints a report as one line. Returns what is wrong with it, empty for nothing.
std::string Companion::print(std::string_view report) {
    boost::system::error_code error;
    const boost::json::value value = boost::json::parse(report, error);
    if (error)
        return "not JSON: " + error.message();
    if (hasReader_ && !screen_.report(boost::json::serialize(value))) {
        hasReader_ = false;
        screen_.error("nobody takes the click reports any more");
        (void)sd_event_exit(event_, EXIT_FAILURE);
    }
    return {};
}

void Companion::connectionLost(const std::string& reason) {
    std::string text = "the extension is gone: " + reason;
    if (splitter_.isWithinReport())
        text += "; the click report that it had begun is lost";
    if (!lines_.empty())
        text += "; " + countOfLines(lines_.size()) + " not sent yet will go to the next one";
    screen_.status(text);
    isConnected_ = false;
    isAcknowledged_ = true;
    sentOfFirst_ = 0;
    splitter_ = finder_sync::ReportSplitter(sizeOfReport);
    limitWaitingLines();
    if (hasInputEnded_ && lines_.empty())
        end(exitCode_);
    else if (hasInputEnded_)
        sayWhatIsMissing();
}

void Companion::limitWaitingLines() {
    // Without a connection, reading goes on: there may be a "quit" or an error to report.
    const bool isTooMuch = isConnected_ && size_ > sizeOfWaitingLines;
    if (isTooMuch == isInputPaused_ || hasInputEnded_)
        return;
    isInputPaused_ = isTooMuch;
    input_.setPaused(isTooMuch);
}

void Companion::end(int exitCode) {
    hasInputEnded_ = true;
    input_.stop();
    links_.finish();
    (void)sd_event_exit(event_, exitCode);
}

} // namespace companion

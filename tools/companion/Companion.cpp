#include "tools/companion/Companion.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace companion {

namespace {

/// Reading commands pauses while more bytes than this wait for an extension that reads slowly.
constexpr std::size_t outboxLimit = std::size_t{1024} * 1024;

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
      listener_([this](process::Descriptor socket) { extensionConnected(std::move(socket)); }),
      input_(*this) {}

bool Companion::bind(std::uint16_t port, std::string& failure) {
    return listener_.bind(port, failure);
}

bool Companion::start(std::string& failure) {
    if (!listener_.listen(event_, failure))
        return false;
    screen_.status("listening on 127.0.0.1:" + std::to_string(port()));
    if (const int result = input_.serve(event_); result < 0) {
        failure = std::string("standard input cannot be read: ") + std::strerror(-result);
        return false;
    }
    return true;
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
    outbox_.add(outboundLine(message, options_.isPadded));
    if (connection_)
        connection_->sendWaitingLines();
    limitWaitingLines();
}

void Companion::complain(const std::string& about) {
    screen_.error("line " + std::to_string(lineNumber_) + ": " + about);
}

void Companion::inputEnded() {
    hasInputEnded_ = true;
    input_.stop();
    if (outbox_.isEmpty() && !(connection_ && connection_->isSending()))
        end(exitCode_);
    else if (!connection_)
        sayWhatIsMissing();
}

void Companion::terminalClosed() {
    end(EXIT_SUCCESS);
}

void Companion::sayWhatIsMissing() {
    screen_.status("waiting for an extension to connect, to send it " +
                   countOfLines(outbox_.count()) + " (interrupt to give up)");
}

void Companion::extensionConnected(process::Descriptor socket) {
    if (connection_) {
        socket.reset();
        screen_.error("a second extension has connected: closed, since one is served at a time");
        return;
    }
    parser_.reset();
    ConnectionObserver& self = *this;
    connection_.emplace(std::move(socket), outbox_, self);
    if (const int result = connection_->serve(event_); result < 0) {
        connectionLost(std::strerror(-result));
        return;
    }
    screen_.status(wasConnected_ ? "an extension has connected; it knows nothing yet of what was "
                                   "sent to the one before"
                                 : "an extension has connected");
    wasConnected_ = true;
    connection_->sendWaitingLines();
}

bool Companion::bytesArrived(std::string_view bytes) {
    const auto print = [this](const std::string& report) {
        if (hasReader_ && !screen_.report(report)) {
            hasReader_ = false;
            screen_.error("nobody takes the click reports any more");
            (void)sd_event_exit(event_, EXIT_FAILURE);
        }
    };
    std::string failure;
    if (parser_.take(bytes, print, failure))
        return true;
    parser_.reset();
    screen_.error("what the extension has sent is no click report: " + failure +
                  "; the link is closed");
    return false;
}

void Companion::linesTaken() {
    limitWaitingLines();
}

void Companion::everythingSent() {
    if (hasInputEnded_)
        end(exitCode_);
}

void Companion::connectionLost(const std::string& reason) {
    connection_.reset();
    outbox_.rewind();
    std::string text = "the extension is gone: " + reason;
    if (parser_.isWithinReport())
        text += "; the click report that it had begun is lost";
    if (!outbox_.isEmpty())
        text += "; " + countOfLines(outbox_.count()) + " not sent yet will go to the next one";
    screen_.status(text);
    limitWaitingLines();
    if (hasInputEnded_)
        sayWhatIsMissing();
}

void Companion::limitWaitingLines() {
    // Without a connection, reading goes on: there may be a "quit" or an error to report.
    const bool isTooMuch = connection_ && outbox_.size() > outboxLimit;
    if (isTooMuch == isInputPaused_ || hasInputEnded_)
        return;
    isInputPaused_ = isTooMuch;
    input_.setPaused(isTooMuch);
}

void Companion::end(int exitCode) {
    hasInputEnded_ = true;
    input_.stop();
    if (connection_)
        connection_->finish();
    (void)sd_event_exit(event_, exitCode);
}

} // namespace companion

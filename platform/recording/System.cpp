#include "platform/recording/Recording.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace platform {

namespace {

int lastErrorNumber = 0; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): as errno is

} // namespace

std::int64_t listxattr(const std::string& path, char* buffer, std::size_t size) {
    recording::AttributeList outcome;
    std::deque<recording::AttributeList>& lists = recording::script().attributeLists;
    if (!lists.empty()) {
        outcome = std::move(lists.front());
        lists.pop_front();
    }
    recording::record("listxattr: " + path + " " + (buffer == nullptr ? "null" : "buffer") + " " +
                      std::to_string(size) + " -> " + std::to_string(outcome.result));
    if (buffer != nullptr)
        std::copy_n(outcome.bytes.data(), std::min(size, outcome.bytes.size()), buffer);
    lastErrorNumber = outcome.errorNumber;
    return outcome.result;
}

int errorNumber() {
    recording::record("errno");
    return lastErrorNumber;
}

const char* strerror(int number) {
    recording::record("strerror: " + std::to_string(number));
    const auto& text = recording::script().errorText;
    return text ? text->c_str() : std::strerror(number);
}

void print(std::string_view text, std::string_view value) {
    recording::record("print: " + std::string(text) + std::string(value));
}

void* malloc(std::size_t size) {
    recording::record("malloc: " + std::to_string(size));
    if (!recording::script().memory)
        return nullptr;
    recording::world().buffers.push_back(std::malloc(size));
    return recording::world().buffers.back();
}

} // namespace platform

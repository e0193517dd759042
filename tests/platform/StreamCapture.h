#pragma once

#include <cstdio>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace tests {

/// Takes what is written to a descriptor for as long as it lives.
class StreamCapture {
public:
    explicit StreamCapture(int descriptor) : descriptor_(descriptor) {
        // What such a process says on standard error is for the process that waits for its death.
        if (descriptor == STDERR_FILENO && testing::internal::InDeathTestChild())
            return;
        (void)std::fflush(nullptr);
        original_ = ::dup(descriptor);
        captured_ = std::tmpfile();
        if (original_ < 0 || captured_ == nullptr || ::dup2(captured(), descriptor) < 0)
            throw std::runtime_error("nothing can be captured");
    }
    ~StreamCapture() {
        if (original_ < 0)
            return;
        (void)std::fflush(nullptr);
        (void)::dup2(original_, descriptor_);
        if (testing::Test::HasFailure()) // whose description was captured as well
            (void)std::fputs(text().c_str(), stderr);
        (void)::close(original_);
        (void)std::fclose(captured_);
    }
    StreamCapture(const StreamCapture&) = delete;
    StreamCapture& operator=(const StreamCapture&) = delete;

    /// Everything so far.
    [[nodiscard]] std::string text() const {
        if (captured_ == nullptr)
            return {};
        std::string text;
        char buffer[65536];
        for (off_t at = 0;;) {
            const ssize_t count = ::pread(captured(), buffer, sizeof buffer, at);
            if (count <= 0)
                return text;
            text.append(buffer, static_cast<std::size_t>(count));
            at += count;
        }
    }

private:
    [[nodiscard]] int captured() const { return ::fileno(captured_); }

    int descriptor_;
    int original_ = -1;
    std::FILE* captured_ = nullptr;
};

} // namespace tests

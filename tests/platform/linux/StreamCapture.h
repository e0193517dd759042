#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace tests {

/// Takes what is written to a descriptor for as long as it lives.
class StreamCapture {
public:
    explicit StreamCapture(int descriptor) : descriptor_(descriptor) {
        (void)std::fflush(nullptr);
        original_ = ::dup(descriptor);
        captured_ = ::memfd_create("captured", MFD_CLOEXEC);
        if (original_ < 0 || captured_ < 0 || ::dup2(captured_, descriptor) < 0)
            throw std::runtime_error("nothing can be captured");
    }
    ~StreamCapture() {
        (void)std::fflush(nullptr);
        (void)::dup2(original_, descriptor_);
        (void)::close(original_);
        (void)::close(captured_);
    }
    StreamCapture(const StreamCapture&) = delete;
    StreamCapture& operator=(const StreamCapture&) = delete;

    /// Everything so far.
    [[nodiscard]] std::string text() const {
        std::string text;
        char buffer[65536];
        for (off_t at = 0;;) {
            const ssize_t count = ::pread(captured_, buffer, sizeof buffer, at);
            if (count <= 0)
                return text;
            text.append(buffer, static_cast<std::size_t>(count));
            at += count;
        }
    }

private:
    int descriptor_;
    int original_ = -1;
    int captured_ = -1;
};

} // namespace tests

#pragma once

#include <unistd.h>
#include <utility>

namespace process {

/// Owns a file descriptor and closes it; -1 for none.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }

    [[nodiscard]] int get() const { return descriptor_; }
    [[nodiscard]] explicit operator bool() const { return descriptor_ >= 0; }

    /// Gives up the descriptor without closing it.
    [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

    /// Closes the descriptor and takes over another one.
    void reset(int descriptor = -1) {
        if (const int previous = std::exchange(descriptor_, descriptor); previous >= 0)
            (void)::close(previous);
    }

private:
    int descriptor_ = -1;
};

} // namespace process

#pragma once

#include <unistd.h>
#include <utility>

namespace findersync::bench {

/// Owns a file descriptor.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset();
        descriptor_ = std::exchange(other.descriptor_, -1);
        return *this;
    }

    [[nodiscard]] int get() const { return descriptor_; }

    void reset() {
        if (descriptor_ >= 0)
            ::close(std::exchange(descriptor_, -1));
    }

private:
    int descriptor_ = -1;
};

} // namespace findersync::bench

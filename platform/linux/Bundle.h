#pragma once

#include "platform/AppKit.h"

#include <memory>
#include <string>
#include <utility>

namespace platform::linux_backend {

/// An image is known by its file; whoever shows it loads it.
class ImageFile : public NSImage {
public:
    explicit ImageFile(std::string path) : path_(std::move(path)) {}

    /// Absolute path of the file.
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

} // namespace platform::linux_backend

#pragma once

#include "platform/AppKit.h"

#include <memory>
#include <string>
#include <utility>

namespace platform::linux_backend {

/// An image's name and file. The file manager loads the file.
class ImageFile : public NSImage {
public:
    ImageFile(std::string name, std::string path)
        : name_(std::move(name)), path_(std::move(path)) {}

    /// The name given to `imageNamed`.
    [[nodiscard]] const std::string& name() const { return name_; }

    /// Absolute path of the file.
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string name_;
    std::string path_;
};

} // namespace platform::linux_backend

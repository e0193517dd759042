#pragma once

#include "platform/AppKit.h"

#include <string>
#include <string_view>

namespace platform::recording {

class RecordedImage : public NSImage {
public:
    explicit RecordedImage(std::string_view name) : name_(name) {}
    [[nodiscard]] const std::string& name() const { return name_; }

private:
    std::string name_;
};

} // namespace platform::recording

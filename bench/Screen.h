#pragma once

#include "bench/ChildProcess.h"
#include "bench/Pipe.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace findersync::bench {

/// An X server without a screen. It keeps its pixels in a file, so that looking at one is a read
/// from memory, of which neither the server nor its clients know.
class Screen {
public:
    using Color = std::uint32_t; ///< 0xRRGGBB
    struct Point {
        std::size_t x;
        std::size_t y;
    };

    /// Keeps the pixels in a directory that it makes, and a log.
    explicit Screen(const std::string& directory);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// The value of $DISPLAY that names it.
    [[nodiscard]] const std::string& display() const { return display_; }

    /// Where programs that draw on it may put their complaints.
    [[nodiscard]] int log() const { return log_.get(); }

    [[nodiscard]] Color color(Point point) const;

    /// The middle of the first square of that colour and edge, by rows, if there is any.
    [[nodiscard]] std::optional<Point> find(Color color, std::size_t edge) const;

private:
    [[nodiscard]] std::uint32_t header(std::size_t field) const;
    void map(const std::string& file);

    FileDescriptor log_;
    Pipe announcement_; ///< of the number that the server has chosen
    ChildProcess server_;
    std::string display_;
    const std::byte* image_ = nullptr;
    std::size_t imageSize_ = 0;
    std::size_t firstPixel_ = 0;
    std::size_t bytesPerRow_ = 0;
    std::size_t width_ = 0;
    std::size_t height_ = 0;
};

} // namespace findersync::bench

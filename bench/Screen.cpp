#include "bench/Screen.h"

#include "bench/SystemCall.h"

#include <endian.h>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace findersync::bench {

namespace {

// The file is an X window dump: a header of 32-bit numbers, most significant byte first, then the
// colour map, then the pixels.
enum HeaderField : std::size_t {
    HeaderSize = 0,
    Width = 4,
    Height = 5,
    BitsPerPixel = 11,
    BytesPerRow = 12,
    Colors = 19,
};
constexpr std::size_t bytesPerColor = 12;

FileDescriptor openLog(const std::string& directory) {
    std::filesystem::create_directories(directory);
    return FileDescriptor(
        checked(::open((directory + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
                       S_IRUSR | S_IWUSR),
                "open"));
}

} // namespace

Screen::Screen(const std::string& directory)
    : log_(openLog(directory)),
      server_({"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0", "1000x700x24", "-nolisten",
               "tcp", "-noreset", "-fbdir", directory},
              {.output = announcement_.writeEnd.get(), .error = log_.get()}) {
    announcement_.writeEnd.reset();
    char number[16] = {};
    const auto count =
        checked(::read(announcement_.readEnd.get(), number, sizeof number - 1), "read");
    if (count == 0)
        throw std::runtime_error("the X server has not started");
    display_ = ":" + std::to_string(std::stoi(number));
    map(directory + "/Xvfb_screen0");
}

Screen::~Screen() {
    (void)::munmap(const_cast<std::byte*>(image_), imageSize_);
    try {
        server_.end(); // and does not kill it: the server removes its lock
    } catch (const std::exception&) {
        // It has been of no more use anyway.
    }
}

void Screen::map(const std::string& file) {
    const FileDescriptor descriptor(checked(::open(file.c_str(), O_RDONLY | O_CLOEXEC), "open"));
    struct stat status {};
    checked(::fstat(descriptor.get(), &status), "fstat");
    imageSize_ = static_cast<std::size_t>(status.st_size);
    void* const memory = ::mmap(nullptr, imageSize_, PROT_READ, MAP_SHARED, descriptor.get(), 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("the pixels cannot be mapped");
    image_ = static_cast<const std::byte*>(memory);
    if (header(BitsPerPixel) != 32)
        throw std::runtime_error("the X server's pixels do not have 32 bits");
    firstPixel_ = header(HeaderSize) + header(Colors) * bytesPerColor;
    bytesPerRow_ = header(BytesPerRow);
    width_ = header(Width);
    height_ = header(Height);
}

std::uint32_t Screen::header(std::size_t field) const {
    return be32toh(reinterpret_cast<const std::uint32_t*>(image_)[field]);
}

Screen::Color Screen::color(Point point) const {
    const std::byte* const pixel =
        image_ + firstPixel_ + point.y * bytesPerRow_ + point.x * sizeof(Color);
    // Another process writes it.
    return *reinterpret_cast<const volatile Color*>(pixel) & 0xffffffU;
}

std::optional<Screen::Point> Screen::find(Color wanted, std::size_t edge) const {
    for (std::size_t y = 0; y + edge <= height_; ++y)
        for (std::size_t x = 0; x + edge <= width_; ++x)
            if (color({x, y}) == wanted && color({x + edge - 1, y}) == wanted &&
                color({x, y + edge - 1}) == wanted)
                return Point{x + edge / 2, y + edge / 2};
    return std::nullopt;
}

} // namespace findersync::bench

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace findersync::fuzz {

/// What the companion's messages do, told a second time and as simply as it can be told: with JSON
/// trees, and with texts compared in their composed form.
struct InboundModel {
    std::vector<std::string> roots;
    std::string shareContactTitle;
    std::string shareViaUrlTitle;
    std::string backupTitle;
    bool displaysBackup = false;

    /// Takes what arrives with one event. Gives false when that is fatal; messages before the
    /// offending one have been applied then.
    [[nodiscard]] bool receive(std::string_view bytes);

private:
    [[nodiscard]] bool read(std::string_view bytes);
    [[nodiscard]] bool apply(std::string_view line);
};

/// A text in Unicode's normalization form C, for comparison.
[[nodiscard]] std::u16string composed(std::string_view text);

/// Whether bytes are valid UTF-8.
[[nodiscard]] bool isText(std::string_view bytes);

} // namespace findersync::fuzz

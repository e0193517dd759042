#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace findersync::bench {

/// The middle one of the values, which are not none.
[[nodiscard]] double median(std::vector<double> values);

/// A ratio that a bench has measured, and what is required of it, if anything.
struct Figure {
    std::string what;
    double measured = 0;
    std::optional<double> atLeast = std::nullopt;
    std::optional<double> atMost = std::nullopt;
    int decimals = 2;

    [[nodiscard]] bool isMet() const;
};

/// Prints the figures for bench/run, one line each, fields separated by tabs. Gives the exit code
/// of the bench: 0 when every requirement is met or nothing is to be judged, otherwise 1.
[[nodiscard]] int report(const std::vector<Figure>& figures, bool isJudged);

} // namespace findersync::bench

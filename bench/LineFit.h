#pragma once

#include <vector>

namespace findersync::bench {

struct Point {
    double x = 0;
    double y = 0;
};

/// The straight line that comes closest to some points, in the sense of least squares.
struct LineFit {
    double slope = 0;
    double intercept = 0;
    double rSquared = 0; ///< 1 when all points lie on the line
};

/// Fits a line to two or more points, which are not all above each other.
[[nodiscard]] LineFit fitLine(const std::vector<Point>& points);

} // namespace findersync::bench

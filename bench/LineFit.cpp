#include "bench/LineFit.h"

namespace findersync::bench {

LineFit fitLine(const std::vector<Point>& points) {
    Point mean;
    for (const Point& point : points) {
        mean.x += point.x / static_cast<double>(points.size());
        mean.y += point.y / static_cast<double>(points.size());
    }
    double xx = 0;
    double xy = 0;
    double yy = 0;
    for (const Point& point : points) {
        xx += (point.x - mean.x) * (point.x - mean.x);
        xy += (point.x - mean.x) * (point.y - mean.y);
        yy += (point.y - mean.y) * (point.y - mean.y);
    }
    const double slope = xy / xx;
    return {.slope = slope, .intercept = mean.y - slope * mean.x, .rSquared = xy * xy / (xx * yy)};
}

} // namespace findersync::bench

#include "bench/Report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace findersync::bench {

namespace {

std::string formatted(const char* relation, double value, int decimals = 2) {
    char text[64];
    (void)std::snprintf(text, sizeof text, "%s%.*f", relation, decimals, value);
    return text;
}

std::string requirement(const Figure& figure) {
    if (figure.atLeast)
        return formatted("at least ", *figure.atLeast);
    if (figure.atMost)
        return formatted("at most ", *figure.atMost);
    return "-";
}

} // namespace

double median(std::vector<double> values) {
    std::ranges::sort(values);
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

bool Figure::isMet() const {
    return measured >= atLeast.value_or(measured) && measured <= atMost.value_or(measured);
}

int report(const std::vector<Figure>& figures, bool isJudged) {
    bool isMet = true;
    for (const Figure& figure : figures) {
        const char* verdict = "-";
        if (isJudged && (figure.atLeast || figure.atMost))
            verdict = figure.isMet() ? "yes" : "NO";
        std::printf("%s\t%s\t%s\t%s\n", figure.what.c_str(),
                    formatted("", figure.measured, figure.decimals).c_str(),
                    requirement(figure).c_str(), verdict);
        isMet = isMet && figure.isMet();
    }
    return isMet || !isJudged ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace findersync::bench

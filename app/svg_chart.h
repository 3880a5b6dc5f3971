// Curves as a drawing of SVG text.
#pragma once

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "results/history.h"

namespace kestralum {

// The columns over x, all of one unit, with axes, values beside them and names below; none where fewer than
// two rows have a number.
std::string svg_chart(const History& history, std::span<const std::size_t> columns);

struct LogCurve {
    std::string name;
    std::vector<std::pair<double, double>> points;  // in the order in which they are joined, each marked
};

// Curves on logarithmic axes, `y` the words above; points that are not positive are left out. None where
// fewer than two points are left.
std::string svg_log_chart(std::span<const LogCurve> curves, const std::string& x, const std::string& y);

}  // namespace kestralum

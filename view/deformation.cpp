#include "view/deformation.h"

#include <algorithm>
#include <limits>

#include "model/format.h"

namespace kestralum::view {

double largest_displacement(std::span<const double> vector) {
    double largest = 0;
    for (std::size_t k = 0; k + 2 < vector.size(); k += 3) {
        const double length = std::hypot(vector[k], vector[k + 1], vector[k + 2]);
        if (!std::isfinite(length)) return std::numeric_limits<double>::infinity();
        largest = std::max(largest, length);
    }
    return largest;
}

double scale_factor(AnalysisType ana_type, std::span<const double> vector, const ScaleRule& rule) {
    constexpr double mode_share = 0.2, static_share = 0.1, small_share = 1.0 / 200;
    const double L = extent_of(rule.max_length);
    const double largest = largest_displacement(vector);
    if (!std::isfinite(largest)) return 0;
    if (rule.deformation == Deformation::fixed) return std::isfinite(rule.fixed) ? rule.fixed : 0;
    double factor = 1;
    if (has_shapes(ana_type)) {
        if (!(largest > 0)) return 0;
        factor = mode_share * L / largest;
    } else {
        const bool automatic = rule.deformation == Deformation::automatic,
                   magnified = automatic || (ana_type == AnalysisType::linear_static && rule.auto_scale);
        const double all = automatic && rule.largest_of_steps > 0 ? rule.largest_of_steps : largest;
        if (magnified && all > 0 && all < small_share * L) factor = static_share * L / all;
    }
    factor *= rule.mode_scale;
    return std::isfinite(factor) ? factor : 0;
}

std::array<double, phase_count> phase_table(AnalysisType ana_type) {
    constexpr double two_pi = 6.283185307;
    std::array<double, phase_count> table;
    for (int k = 0; k < phase_count; ++k)
        table[k] = has_shapes(ana_type) ? std::cos(k * two_pi / phase_count) : 1.0;
    return table;
}

void displace(std::span<const double> coordinates, std::span<const double> vector, double factor,
              std::vector<double>& out) {
    out.assign(coordinates.begin(), coordinates.end());
    if (factor == 0) return;  // a vector that is not finite is drawn undeformed
    const std::size_t size = std::min(out.size(), vector.size());
    for (std::size_t k = 0; k < size; ++k) out[k] += factor * vector[k];
}

std::string scale_text(double factor) {
    return formatted("Deformation x %.4g", factor);
}

}  // namespace kestralum::view

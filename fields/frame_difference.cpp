#include "fields/frame_difference.h"

#include <algorithm>
#include <iterator>

namespace kestralum {

std::vector<double> value_difference(std::span<const double> a, std::span<const double> b, int components,
                                     std::span<const std::int32_t> node_of) {
    std::vector<double> out;
    const std::size_t width = components;
    if (a.size() != b.size() || (!node_of.empty() && a.size() != width * node_of.size())) return out;
    out.resize(a.size());
    for (std::size_t k = 0; k < a.size(); ++k) {
        const std::size_t n = k / width;
        out[k] = a[k] - b[node_of.empty() ? k : width * std::size_t(node_of[n]) + k % width];
    }
    return out;
}

Frame frame_difference(const Frame& a, const Frame& b, std::span<const std::int32_t> node_of) {
    Frame out;
    const std::size_t dofs = a.mode_vec.size();
    out.n_freq = a.n_freq - b.n_freq;
    out.mode_vec = value_difference(a.mode_vec, b.mode_vec, 3, node_of);
    if (out.mode_vec.empty()) return out;
    out.error = value_difference(a.error, b.error, 1, node_of);
    std::ranges::set_union(a.removed, b.removed, std::back_inserter(out.removed));
    if (a.node_stress.size() != stress_groups * dofs || b.node_stress.size() != stress_groups * dofs)
        return out;
    for (std::size_t group = 0; group < stress_groups; ++group) {
        const auto of = [&](const Frame& frame) {
            return std::span(frame.node_stress).subspan(group * dofs, dofs);
        };
        const std::vector<double> values = value_difference(of(a), of(b), 3, node_of);
        out.node_stress.insert(out.node_stress.end(), values.begin(), values.end());
    }
    return out;
}

std::vector<double> quantity_difference(const FieldQuantityRow& row, const FieldValues& a,
                                        const FieldValues& b, std::span<const std::int32_t> node_of) {
    const bool direction =
        row.quantity >= FieldQuantity::direction_1 && row.quantity <= FieldQuantity::direction_3;
    if (direction) return {};
    return value_difference(a.of(row), b.of(row), row.components, node_of);
}

}  // namespace kestralum

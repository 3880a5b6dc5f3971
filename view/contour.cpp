#include "view/contour.h"

#include <algorithm>

namespace kestralum::view {

const Quantity* quantity_at(std::int32_t index) {
    if (index == plastic_strain_row) return &plastic_strain;
    if (index < 0 || index >= static_cast<std::int32_t>(quantities.size())) return nullptr;
    return &quantities[index];
}

const char* quantity_text(std::int32_t index) {
    const Quantity* quantity = quantity_at(index);
    return quantity ? quantity->text : "";
}

std::span<const double> frame_displacement(const Results& results, std::int32_t dof_num, std::int32_t frame) {
    const auto k = static_cast<std::size_t>(frame) - 1;
    if (frame < 1 || dof_num < 1 || k >= results.frame_vector.size()) return {};
    const std::int32_t row = results.frame_vector[k];
    const std::size_t dofs = dof_num;
    const std::size_t rows = results.n_freq.size();
    if (results.mode_vec.size() != rows * dofs || row < 0 || static_cast<std::size_t>(row) >= rows) return {};
    return std::span(results.mode_vec).subspan(static_cast<std::size_t>(row) * dofs, dofs);
}

namespace {

// One group of the nodal stresses: dof_num values, three per node.
std::span<const double> stress_group(const Results& results, std::int32_t dof_num, std::int32_t frame,
                                     int group) {
    if (frame < 1 || dof_num < 1 || frame > results.mode_num()) return {};
    const std::size_t dofs = dof_num;
    const auto row = static_cast<std::size_t>(frame - 1) * stress_groups + static_cast<std::size_t>(group);
    if (results.node_stress.size() != stress_groups * results.n_freq.size() * dofs) return {};
    return std::span(results.node_stress).subspan(row * dofs, dofs);
}

}  // namespace

std::vector<double> nodal_values(std::int32_t index, const Mesh& mesh, const Results& results,
                                 std::int32_t frame) {
    const Quantity* quantity = quantity_at(index);
    if (!quantity || quantity->source == Source::none) return {};
    const std::int32_t nodes = mesh.node_num();
    const auto table = quantity->source == Source::stress
                           ? stress_group(results, 3 * nodes, frame, quantity->group)
                           : frame_displacement(results, 3 * nodes, frame);
    if (table.empty()) return {};
    std::vector<double> values(nodes);
    for (std::size_t n = 0; n < values.size(); ++n)
        values[n] = quantity->source == Source::magnitude
                        ? norm(triple(table, static_cast<std::int64_t>(n)))
                        : table[3 * n + static_cast<std::size_t>(quantity->component)];
    return values;
}

std::optional<ValueRange> value_range(std::span<const double> values, std::span<const std::int32_t> nodes) {
    std::optional<ValueRange> range;
    for (const std::int32_t n : nodes) {
        if (static_cast<std::size_t>(n) >= values.size()) continue;
        const Extreme here{values[n], n + 1, 0};
        if (!std::isfinite(here.value)) continue;
        if (!range) range = ValueRange{here, here};
        if (here.value < range->low.value) range->low = here;
        if (here.value > range->high.value) range->high = here;
    }
    return range;
}

std::optional<ValueRange> value_range_all_frames(std::int32_t index, const Mesh& mesh, const Results& results,
                                                 std::span<const std::int32_t> nodes) {
    std::optional<ValueRange> range;
    for (std::int32_t frame = 1; frame <= results.mode_num(); ++frame) {
        auto here = value_range(nodal_values(index, mesh, results, frame), nodes);
        if (!here) continue;
        here->low.frame = here->high.frame = frame;
        if (!range) range = here;
        if (here->low.value < range->low.value) range->low = here->low;
        if (here->high.value > range->high.value) range->high = here->high;
    }
    return range;
}

double normalised(double value, const ValueRange& range) {
    if (std::isnan(value)) return value;
    // halves: the width of a range of huge values must not overflow
    const double width = 0.5 * range.high.value - 0.5 * range.low.value;
    if (!(width > 0)) return 0;
    return std::clamp((0.5 * value - 0.5 * range.low.value) / width, 0.0, 1.0);
}

Color contour_color(double v, double alpha) {
    const auto a = static_cast<float>(alpha);
    if (std::isnan(v)) return {0.5f, 0.5f, 0.5f, a};
    const double d = 2 * std::abs(0.5 - v);
    const double red = v > 0.5 ? d : 0, green = 1 - d, blue = v < 0.5 ? d : 0;
    const double m = std::max({red, green, blue});
    return {static_cast<float>(red / m), static_cast<float>(green / m), static_cast<float>(blue / m), a};
}

}  // namespace kestralum::view

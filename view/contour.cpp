#include "view/contour.h"

#include <algorithm>

namespace kestralum::view {

const Quantity* quantity_at(std::int32_t index) {
    if (index == plastic_strain_row) return &plastic_strain;
    if (index == error_row) return &error_estimate;
    if (index < 0 || index >= std::ssize(quantities)) return nullptr;
    return &quantities[index];
}

const char* quantity_text(std::int32_t index) {
    const Quantity* quantity = quantity_at(index);
    return quantity ? quantity->text : "";
}

std::shared_ptr<const Frame> frame_at(Frames frames, std::int32_t frame) {
    return frame >= 1 && frame <= mode_num(frames) ? frames[frame - 1] : nullptr;
}

std::vector<double> nodal_values(std::int32_t index, const Mesh& mesh, const Frame& frame) {
    const Quantity* quantity = quantity_at(index);
    const std::size_t dofs = mesh.dof_num();
    if (!quantity || quantity->source == Source::none || frame.mode_vec.size() != dofs ||
        frame.node_stress.size() != stress_groups * dofs)
        return {};
    if (quantity->source == Source::error) {
        if (frame.error.size() != dofs / 3) return {};
        std::vector<double> percent(frame.error);
        for (double& value : percent) value *= 100;
        return percent;
    }
    const auto table = quantity->source == Source::stress
                           ? std::span(frame.node_stress).subspan(quantity->group * dofs, dofs)
                           : std::span(frame.mode_vec);
    std::vector<double> values(mesh.node_num());
    for (std::size_t n = 0; n < values.size(); ++n)
        values[n] = quantity->source == Source::magnitude ? norm(triple(table, n))
                                                          : table[3 * n + quantity->component];
    return values;
}

std::optional<ValueRange> value_range(std::span<const double> values, std::span<const std::int32_t> nodes) {
    std::optional<ValueRange> range;
    for (const std::int32_t n : nodes) {
        if (n < 0 || n >= std::ssize(values)) continue;
        const Extreme here{values[n], n + 1, 0};
        if (!std::isfinite(here.value)) continue;
        if (!range) range = ValueRange{here, here};
        if (here.value < range->low.value) range->low = here;
        if (here.value > range->high.value) range->high = here;
    }
    return range;
}

std::optional<ValueRange> value_range_all_frames(std::int32_t index, const Mesh& mesh, Frames frames,
                                                 std::span<const std::int32_t> nodes,
                                                 const NodesOfFrame& nodes_of) {
    std::optional<ValueRange> range;
    for (std::int32_t frame = 1; frame <= mode_num(frames); ++frame) {
        const Frame& values = *frame_at(frames, frame);
        std::vector<std::int32_t> left;
        const bool other = nodes_of && !values.removed.empty();
        if (other) left = nodes_of(values);
        auto here = value_range(nodal_values(index, mesh, values), other ? left : nodes);
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
    Vec3 color{0.5, 0.5, 0.5};
    if (!std::isnan(v)) {
        const double d = 2 * std::abs(0.5 - v);
        const double red = v > 0.5 ? d : 0, green = 1 - d, blue = v < 0.5 ? d : 0;
        const double m = std::max({red, green, blue});
        color = {red / m, green / m, blue / m};
    }
    const auto [red, green, blue] = to_float(color);
    return {red, green, blue, static_cast<float>(alpha)};
}

}  // namespace kestralum::view

#include "view/contour.h"

#include <algorithm>

namespace kestralum::view {

namespace {

bool is_direction(FieldQuantity quantity) {
    return quantity == FieldQuantity::direction_1 || quantity == FieldQuantity::direction_2 ||
           quantity == FieldQuantity::direction_3;
}

}  // namespace

std::span<const Quantity> further_quantities() {
    static const std::vector<Quantity> rows = [] {
        std::vector<Quantity> out;
        for (const FieldQuantityRow& row : field_quantities) {
            const auto index = static_cast<std::int32_t>(row.quantity);
            if (index == plastic_strain_row || index == error_row || is_direction(row.quantity)) continue;
            out.push_back({row.text, row.text, row.unit, Source::field, index, 0});
        }
        return out;
    }();
    return rows;
}

const Quantity* quantity_at(std::int32_t index) {
    if (index == plastic_strain_row) return &plastic_strain;
    if (index == error_row) return &error_estimate;
    for (const Quantity& quantity : further_quantities())
        if (quantity.group == index) return &quantity;
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

namespace {

std::vector<double> further_values(std::int32_t index, const Frame& frame, const FieldBase& base) {
    const FieldQuantityRow* row = field_quantity_at(index);
    if (!row) return {};
    std::vector<double> values = FieldValues(base.model, base.material, frame).of(*row);
    if (row->components == 1) return values;
    std::vector<double> lengths(values.size() / 3);
    for (std::size_t n = 0; n < lengths.size(); ++n) lengths[n] = norm(triple(values, n));
    return lengths;
}

}  // namespace

std::vector<double> nodal_values(std::int32_t index, const Mesh& mesh, const Frame& frame,
                                 const FieldBase* base) {
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
    if (quantity->source == Source::stress || quantity->source == Source::field)
        return place_values(index, frame, base);
    std::vector<double> values(mesh.node_num());
    for (std::size_t n = 0; n < values.size(); ++n)
        values[n] = quantity->source == Source::magnitude ? norm(triple(frame.mode_vec, n))
                                                          : frame.mode_vec[3 * n + quantity->component];
    return values;
}

std::vector<double> place_values(std::int32_t index, const Frame& table, const FieldBase* base) {
    const Quantity* quantity = quantity_at(index);
    const std::size_t dofs = table.mode_vec.size();
    if (!quantity || table.node_stress.size() != stress_groups * dofs) return {};
    if (quantity->source == Source::field)
        return base ? further_values(index, table, *base) : std::vector<double>();
    if (quantity->source != Source::stress) return {};
    const auto group = std::span(table.node_stress).subspan(quantity->group * dofs, dofs);
    std::vector<double> values(dofs / 3);
    for (std::size_t n = 0; n < values.size(); ++n) values[n] = group[3 * n + quantity->component];
    return values;
}

std::optional<Vec3> place_of_extreme(const Mesh& mesh, std::span<const double> places,
                                     const Extreme& extreme) {
    const std::int32_t k = extreme.node - 1;
    if (k < 0 || k >= (extreme.of_element ? mesh.element_num() : mesh.node_num())) return std::nullopt;
    if (!extreme.of_element) return triple(places, k);
    Vec3 sum{};
    for (const std::int32_t n : mesh.element(k)) sum = plus(sum, triple(places, node_index(n)));
    return times(1.0 / static_cast<double>(mesh.element(k).size()), sum);
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

std::optional<ValueRange> value_range_all_frames(Frames frames, const ValuesOfFrame& values_of,
                                                 std::span<const std::int32_t> nodes,
                                                 const NodesOfFrame& nodes_of) {
    std::optional<ValueRange> range;
    for (std::int32_t frame = 1; frame <= mode_num(frames); ++frame) {
        const Frame& values = *frame_at(frames, frame);
        std::vector<std::int32_t> left;
        const bool other = nodes_of && !values.removed.empty();
        if (other) left = nodes_of(values);
        auto here = value_range(values_of(values), other ? left : nodes);
        if (!here) continue;
        here->low.frame = here->high.frame = frame;
        if (!range) range = here;
        if (here->low.value < range->low.value) range->low = here->low;
        if (here->high.value > range->high.value) range->high = here->high;
    }
    return range;
}

}  // namespace kestralum::view

#include "conditions/constraints.h"

#include <algorithm>

#include "model/selection.h"

namespace kestralum {

namespace {

void print_selection(const BoundaryCondition& record, Progress& progress) {
    if (record.kind == Selection::plane) progress.print("  %d\n", record.axis);
    if (record.kind == Selection::area)
        progress.print("  %d:%d,%d\n", record.axis, record.axis == 0 ? 1 : 0, record.axis == 2 ? 1 : 2);
}

// What supports with options and ties take away, in lines of their own.
void hold_places(const NodeConstraints& constraints, std::int32_t nodes, DofNumbering& out,
                 Progress& progress) {
    for (const HeldDof& held : constraints.held) out.dof_map[held.dof] = -1;
    std::int32_t tied = 0;
    for (const std::int32_t n : constraints.map.special_nodes()) {
        if (!constraints.map.is_tied(n)) continue;
        ++tied;
        for (std::int32_t c = 0; c < 3; ++c) out.dof_map[3 * n + c] = -1;
    }
    if (!constraints.held.empty()) progress.print("partial_fix_num=%zu\n", constraints.held.size());
    if (tied > 0) progress.print("tied_node_num=%d of %d\n", tied, nodes);
}

}  // namespace

std::int32_t DofNumbering::repeated_nodes() const {
    std::vector<std::int32_t> nodes = fixed_nodes;
    std::sort(nodes.begin(), nodes.end());
    std::int32_t repeated = 0;
    for (std::size_t k = 1; k < nodes.size(); ++k)
        repeated += nodes[k] == nodes[k - 1] && (k == 1 || nodes[k - 2] != nodes[k]);
    return repeated;
}

std::vector<std::int32_t> wholly_fixed_nodes(std::span<const BoundaryCondition> records, const Mesh& mesh) {
    std::vector<std::int32_t> nodes;
    for (const BoundaryCondition& record : records) {
        if (record.options.given) continue;
        const auto selected = select_nodes(record, mesh);
        nodes.insert(nodes.end(), selected.begin(), selected.end());
    }
    return nodes;
}

DofNumbering apply_boundary_conditions(std::span<const BoundaryCondition> records, const Mesh& mesh,
                                       const NodeElements& node_elements, const NodeConstraints& constraints,
                                       std::int32_t& fn_free, Progress& progress,
                                       std::span<const std::int32_t> shown) {
    DofNumbering out;
    const auto shown_as = [&](std::int32_t n) { return shown.empty() ? n : shown[n]; };
    const auto on_element = [&](std::int32_t n) { return node_elements.any(n); };
    progress.print("Boundary Condition\n");
    for (const BoundaryCondition& record : records) {
        print_selection(record, progress);
        auto nodes = select_nodes(record, mesh);
        std::ranges::sort(nodes, {}, shown_as);
        out.selected.push_back(
            static_cast<std::int32_t>(std::count_if(nodes.begin(), nodes.end(), on_element)));
        if (record.options.given) continue;
        out.fixed_nodes.insert(out.fixed_nodes.end(), nodes.begin(), nodes.end());
        out.fixed_record.resize(out.fixed_nodes.size(), static_cast<std::int32_t>(&record - records.data()));
    }
    progress.print("fix_node_num=%d\n", out.fix_node_num());
    const std::int32_t fn = 3 * mesh.node_num();
    out.dof_map.assign(fn, 0);
    for (std::int32_t n : out.fixed_nodes) {
        const std::int32_t k = shown_as(n);
        progress.print("%d:%d,%d,%d\r", k, 3 * k, 3 * k + 1, 3 * k + 2);
        for (std::int32_t c = 0; c < 3; ++c) out.dof_map[3 * n + c] = -1;
    }
    progress.print("\n");
    fn_free -= 3 * out.fix_node_num();
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (on_element(n)) continue;
        ++out.hanging_nodes;
        for (std::int32_t c = 0; c < 3; ++c) out.dof_map[3 * n + c] = -1;
    }
    progress.print("free_degree\n");
    progress.print("free_degree\n");
    hold_places(constraints, mesh.node_num(), out, progress);
    for (std::int32_t j = 0; j < fn; ++j) {
        std::int32_t& equation = out.dof_map[j];
        if (equation < 0) continue;
        equation = static_cast<std::int32_t>(out.free_dofs.size());
        out.free_dofs.push_back(j);
    }
    return out;
}

}  // namespace kestralum

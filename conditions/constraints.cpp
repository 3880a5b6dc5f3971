#include "conditions/constraints.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/console.h"

namespace kestralum {

namespace {

constexpr double plane_tolerance = 1e-10;  // m
constexpr double box_tolerance = 1e-6;     // m

double low(const BoundaryCondition& record, std::int32_t axis) {
    return record.box[2 * axis];
}
double high(const BoundaryCondition& record, std::int32_t axis) {
    return record.box[2 * axis + 1];
}

bool selects(const BoundaryCondition& record, const double* x) {
    switch (record.kind) {
        case Selection::plane:
            return std::abs(x[record.axis] - high(record, record.axis)) < plane_tolerance;
        case Selection::area:
            // the plane itself is compared exactly: a face that lies on it, not one near it
            if (x[record.axis] != high(record, record.axis)) return false;
            for (std::int32_t c = 0; c < 3; ++c)
                if (c != record.axis &&
                    !(x[c] - low(record, c) >= -plane_tolerance && x[c] - high(record, c) <= plane_tolerance))
                    return false;
            return true;
        case Selection::volume:
            for (std::int32_t c = 0; c < 3; ++c)
                if (!(low(record, c) - box_tolerance <= x[c] && x[c] <= high(record, c) + box_tolerance))
                    return false;
            return true;
    }
    return false;
}

void print_selection(const BoundaryCondition& record) {
    if (record.kind == Selection::plane) console::print("  %d\n", record.axis);
    if (record.kind == Selection::area)
        console::print("  %d:%d,%d\n", record.axis, record.axis == 0 ? 1 : 0, record.axis == 2 ? 1 : 2);
}

}  // namespace

std::vector<std::int32_t> select_nodes(const BoundaryCondition& record, const Mesh& mesh) {
    std::vector<std::int32_t> nodes;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        if (selects(record, mesh.coordinates.data() + 3 * static_cast<std::ptrdiff_t>(n))) nodes.push_back(n);
    return nodes;
}

std::int32_t DofNumbering::repeated_nodes() const {
    std::vector<std::int32_t> nodes = fixed_nodes;
    std::sort(nodes.begin(), nodes.end());
    std::int32_t repeated = 0;
    for (std::size_t k = 1; k < nodes.size(); ++k)
        repeated += nodes[k] == nodes[k - 1] && (k == 1 || nodes[k - 2] != nodes[k]);
    return repeated;
}

DofNumbering apply_boundary_conditions(std::span<const BoundaryCondition> records, const Mesh& mesh,
                                       const NodeElements& node_elements, std::int32_t& fn_free) {
    DofNumbering out;
    const auto on_element = [&](std::int32_t n) {
        return node_elements.start[n] != node_elements.start[static_cast<std::size_t>(n) + 1];
    };
    console::print("Boundary Condition\n");
    for (const BoundaryCondition& record : records) {
        print_selection(record);
        const auto nodes = select_nodes(record, mesh);
        out.selected.push_back(
            static_cast<std::int32_t>(std::count_if(nodes.begin(), nodes.end(), on_element)));
        out.fixed_nodes.insert(out.fixed_nodes.end(), nodes.begin(), nodes.end());
    }
    console::print("fix_node_num=%d\n", out.fix_node_num());
    const std::int32_t fn = 3 * mesh.node_num();
    out.dof_map.assign(fn, 0);
    for (std::int32_t n : out.fixed_nodes) {
        console::print("%d:%d,%d,%d\r", n, 3 * n, 3 * n + 1, 3 * n + 2);
        for (std::int32_t c = 0; c < 3; ++c) out.dof_map[3 * n + c] = -1;
    }
    console::print("\n");
    fn_free -= 3 * out.fix_node_num();
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (on_element(n)) continue;
        ++out.hanging_nodes;
        for (std::int32_t c = 0; c < 3; ++c) out.dof_map[3 * n + c] = -1;
    }
    console::print("free_degree\n");
    console::print("free_degree\n");
    for (std::int32_t j = 0; j < fn; ++j) {
        std::int32_t& equation = out.dof_map[j];
        if (equation < 0) continue;
        equation = static_cast<std::int32_t>(out.free_dofs.size());
        out.free_dofs.push_back(j);
    }
    return out;
}

std::int32_t nearest_node(const Mesh& mesh, const NodeElements& node_elements,
                          const std::array<double, 3>& place) {
    std::int32_t nearest = 0;
    double best = std::numeric_limits<double>::infinity();
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const std::size_t k = n;
        if (node_elements.start[k] == node_elements.start[k + 1]) continue;
        double distance = 0;
        for (std::size_t c = 0; c < 3; ++c)
            distance += (mesh.coordinates[3 * k + c] - place[c]) * (mesh.coordinates[3 * k + c] - place[c]);
        if (distance < best) {
            best = distance;
            nearest = n;
        }
    }
    return nearest;
}

}  // namespace kestralum

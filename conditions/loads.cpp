#include "conditions/loads.h"

#include <algorithm>
#include <cmath>

#include "model/free_faces.h"
#include "model/selection.h"
#include "model/vector3.h"

namespace kestralum {

namespace {

// The degrees of freedom that one record loads, with its share of each.
struct Shares {
    std::vector<std::int32_t> equations;
    std::vector<std::int32_t> nodes;  // 0-based
    std::vector<double> value;        // N
};

std::int32_t equation_of(std::int32_t node, const AppliedForce& force, const DofNumbering& numbering,
                         Progress& progress) {
    const std::int32_t equation = numbering.dof_map[3 * node + force.axis];
    if (equation < 0) {
        progress.print("### ERROR ###\n");
        progress.print("Some force vectors are applied at fixed degree points.\n");
    }
    return equation;
}

// Spreads the force over the nodes by the weights of their equations.
void spread(const AppliedForce& force, const Mesh& mesh, std::span<const double> stiffness, Shares& shares,
            Progress& progress) {
    const auto weight = [&](std::int32_t k) {
        return mesh.element_type == ElementKind::hexahedron ? stiffness[k] : 1.0;
    };
    double sum = 0, applied = 0;
    for (std::int32_t k : shares.equations) sum += weight(k);
    for (std::int32_t k : shares.equations) {
        shares.value.push_back(weight(k) * force.value / sum);
        applied += shares.value.back();
    }
    progress.print("   area_force=%.3e,force_value=%.3e\n", applied, force.value);
}

// The middle of the surface whose corners are all among the nodes, by area; of the nodes where they span
// none.
Vec3 middle_of(const Mesh& mesh, const NodeElements& node_elements, std::span<const std::int32_t> nodes) {
    std::vector<char> chosen(mesh.node_num(), 0);
    for (std::int32_t n : nodes) chosen[n] = 1;
    Vec3 middle{};
    double area = 0;
    for (const SurfaceTriangle& triangle : surface_triangles_of(mesh, node_elements, chosen)) {
        const Vec3 a = triple(mesh.coordinates, triangle.node[0]),
                   b = triple(mesh.coordinates, triangle.node[1]),
                   c = triple(mesh.coordinates, triangle.node[2]);
        const double size = 0.5 * norm(cross(minus(b, a), minus(c, a)));
        area += size;
        middle = plus(middle, times(size / 3, plus(a, plus(b, c))));
    }
    if (area > 0) return times(1 / area, middle);
    middle = {};
    for (std::int32_t n : nodes) middle = plus(middle, triple(mesh.coordinates, n));
    return times(1 / static_cast<double>(nodes.size()), middle);
}

// How far the shares' resultant is off the middle of the loaded area, and the moment that this makes.
void measure_moment(const AppliedForce& force, const Mesh& mesh, const NodeElements& node_elements,
                    std::span<const std::int32_t> nodes, const Shares& shares, LoadedRecord& record) {
    if (shares.nodes.empty() || force.value == 0) return;
    const Vec3 middle = middle_of(mesh, node_elements, nodes);
    Vec3 low = middle, high = middle, moment{};
    for (std::int32_t n : nodes)
        for (std::size_t c = 0; c < 3; ++c) {
            low[c] = std::min(low[c], mesh.node(n)[c]);
            high[c] = std::max(high[c], mesh.node(n)[c]);
        }
    for (std::size_t k = 0; k < shares.nodes.size(); ++k) {
        Vec3 share{};
        share[force.axis] = shares.value[k];
        moment = plus(moment, cross(minus(triple(mesh.coordinates, shares.nodes[k]), middle), share));
    }
    record.moment = moment;
    record.arm = norm(moment) / std::abs(force.value);
    record.size = std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]});
}

Shares load_area(const AppliedForce& force, const Mesh& mesh, const NodeElements& node_elements,
                 const DofNumbering& numbering, std::span<const double> stiffness, LoadedRecord& record,
                 Progress& progress) {
    Shares shares;
    const std::vector<std::int32_t> nodes = select_nodes(force, mesh);
    for (std::int32_t n : nodes)
        if (const std::int32_t k = equation_of(n, force, numbering, progress); k >= 0) {
            shares.equations.push_back(k);
            shares.nodes.push_back(n);
        }
    record.reached = static_cast<std::int32_t>(nodes.size());
    record.on_fixed = static_cast<std::int32_t>(nodes.size() - shares.nodes.size());
    progress.print("  points in area:%d\n", record.reached);
    spread(force, mesh, stiffness, shares, progress);
    measure_moment(force, mesh, node_elements, nodes, shares, record);
    return shares;
}

Shares load_node(const AppliedForce& force, std::int32_t node, const DofNumbering& numbering,
                 LoadedRecord& record, Progress& progress) {
    if (node < 1) return {};
    record.reached = 1;
    const std::int32_t k = equation_of(node - 1, force, numbering, progress);
    record.on_fixed = k < 0;
    return k < 0 ? Shares{} : Shares{{k}, {node - 1}, {force.value}};
}

}  // namespace

LoadVector build_loads(std::span<const AppliedForce> forces, std::span<const std::int32_t> force_node,
                       const Mesh& mesh, const NodeElements& node_elements, const DofNumbering& numbering,
                       std::span<const double> stiffness, Progress& progress) {
    LoadVector out;
    out.F.assign(numbering.free_dofs.size(), 0.0);
    out.records.resize(forces.size());
    std::vector<std::int32_t> owner(out.F.size(), -1);  // the record that an equation's force is of
    for (std::size_t f = 0; f < forces.size(); ++f) {
        progress.print("Force Number %zu\n", f + 1);
        LoadedRecord& record = out.records[f];
        const Shares shares =
            forces[f].kind == ForceKind::node
                ? load_node(forces[f], force_node[f], numbering, record, progress)
                : load_area(forces[f], mesh, node_elements, numbering, stiffness, record, progress);
        for (std::size_t k = 0; k < shares.equations.size(); ++k) {
            const std::int32_t equation = shares.equations[k];
            if (owner[equation] >= 0) {
                LoadedRecord& earlier = out.records[owner[equation]];
                ++earlier.replaced;
                earlier.applied -= out.F[equation];
            }
            owner[equation] = static_cast<std::int32_t>(f);
            out.F[equation] = shares.value[k];
            record.applied += shares.value[k];
        }
    }
    return out;
}

}  // namespace kestralum

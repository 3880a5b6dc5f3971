#include "conditions/loads.h"

#include <algorithm>
#include <cmath>

#include "model/free_faces.h"
#include "model/selection.h"
#include "model/vector3.h"

namespace kestralum {

namespace {

// What one record loads, and its share of each.
struct Shares {
    std::vector<std::int32_t> nodes;  // 0-based
    std::vector<double> value;        // N
};

// Whether a force along an axis moves the node: its place of q is free, or it moves through axes of its own
// or other nodes.
bool can_move(std::int32_t node, const AppliedForce& force, const DofNumbering& numbering,
              const ConstraintMap& map, Progress& progress) {
    const bool free = numbering.dof_map[3 * node + force.axis] >= 0;
    if (free || (!map.empty() && !map.plain(3 * node))) return true;
    progress.print("### ERROR ###\n");
    progress.print("Some force vectors are applied at fixed degree points.\n");
    return false;
}

// Weights of the nodes: the stiffness diagonal on hexahedra; a node that has none along the axis takes the
// mean.
std::vector<double> weights_of(std::span<const std::int32_t> nodes, const AppliedForce& force,
                               const LoadPlaces& places, std::span<const double> stiffness) {
    std::vector<double> weights(nodes.size(), 1.0);
    if (places.mesh.element_type != ElementKind::hexahedron) return weights;
    double sum = 0;
    std::size_t known = 0;
    const auto equation = [&](std::int32_t n) {
        const bool plain = places.map.empty() || places.map.plain(3 * n);
        return plain ? places.numbering.dof_map[3 * n + force.axis] : -1;
    };
    for (std::size_t k = 0; k < nodes.size(); ++k)
        if (const std::int32_t e = equation(nodes[k]); e >= 0) {
            weights[k] = stiffness[e];
            sum += weights[k];
            ++known;
        }
    for (std::size_t k = 0; k < nodes.size() && known > 0; ++k)
        if (equation(nodes[k]) < 0) weights[k] = sum / static_cast<double>(known);
    return weights;
}

// Spreads the force over the nodes by their weights.
void spread(const AppliedForce& force, const LoadPlaces& places, std::span<const double> stiffness,
            Shares& shares, Progress& progress) {
    const std::vector<double> weights = weights_of(shares.nodes, force, places, stiffness);
    double sum = 0, applied = 0;
    for (const double w : weights) sum += w;
    for (const double w : weights) {
        shares.value.push_back(w * force.value / sum);
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

Shares load_area(const AppliedForce& force, const LoadPlaces& places, std::span<const double> stiffness,
                 LoadedRecord& record, Progress& progress) {
    Shares shares;
    const std::vector<std::int32_t> nodes = select_nodes(force, places.mesh);
    for (std::int32_t n : nodes)
        if (can_move(n, force, places.numbering, places.map, progress)) shares.nodes.push_back(n);
    record.reached = static_cast<std::int32_t>(nodes.size());
    record.on_fixed = static_cast<std::int32_t>(nodes.size() - shares.nodes.size());
    progress.print("  points in area:%d\n", record.reached);
    spread(force, places, stiffness, shares, progress);
    measure_moment(force, places.mesh, places.node_elements, nodes, shares, record);
    return shares;
}

Shares load_node(const AppliedForce& force, std::int32_t node, const LoadPlaces& places, LoadedRecord& record,
                 Progress& progress) {
    if (node < 1) return {};
    record.reached = 1;
    const bool moves = can_move(node - 1, force, places.numbering, places.map, progress);
    record.on_fixed = !moves;
    return moves ? Shares{{node - 1}, {force.value}} : Shares{};
}

}  // namespace

LoadVector build_loads(std::span<const AppliedForce> forces, std::span<const std::int32_t> force_node,
                       const LoadPlaces& places, std::span<const double> stiffness, Progress& progress,
                       std::span<const char> chosen) {
    LoadVector out;
    out.nodal.assign(places.mesh.dof_num(), 0.0);
    out.records.resize(forces.size());
    std::vector<std::int32_t> owner(out.nodal.size(),
                                    -1);  // the record that a degree of freedom's force is of
    for (std::size_t f = 0; f < forces.size(); ++f) {
        if (!chosen.empty() && !chosen[f]) continue;
        progress.print("Force Number %zu\n", f + 1);
        LoadedRecord& record = out.records[f];
        const Shares shares = forces[f].kind == ForceKind::node
                                  ? load_node(forces[f], force_node[f], places, record, progress)
                                  : load_area(forces[f], places, stiffness, record, progress);
        for (std::size_t k = 0; k < shares.nodes.size(); ++k) {
            const std::int32_t dof = 3 * shares.nodes[k] + forces[f].axis;
            if (owner[dof] >= 0) {
                LoadedRecord& earlier = out.records[owner[dof]];
                ++earlier.replaced;
                earlier.applied -= out.nodal[dof];
            }
            owner[dof] = static_cast<std::int32_t>(f);
            out.nodal[dof] = shares.value[k];
            record.applied += shares.value[k];
        }
    }
    return out;
}

}  // namespace kestralum

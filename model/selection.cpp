#include "model/selection.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/mesh_sets.h"

namespace kestralum {

namespace {

constexpr double plane_tolerance = 1e-10;  // m
constexpr double volume_tolerance = 1e-6;  // m
constexpr double force_tolerance = 1e-7;   // m
constexpr double rigid_tolerance = 1e-7;   // m

template <typename Test>
std::vector<std::int32_t> nodes_where(const Mesh& mesh, const Test& test) {
    std::vector<std::int32_t> nodes;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        if (test(n, mesh.node(n))) nodes.push_back(n);
    return nodes;
}

// Nodes of a set; none where the mesh has no such set, as that of a result file.
std::vector<std::int32_t> nodes_of_set(const Mesh& mesh, const std::string& name) {
    const MeshSet* set = find_set(mesh, name);
    return set ? set->nodes : std::vector<std::int32_t>{};
}

bool on_plane(const BoundaryCondition& record, const double* x) {
    return std::abs(x[record.axis] - record.box[2 * record.axis + 1]) < plane_tolerance;
}

// The plane itself is compared exactly: a face that lies on it, not one near it.
bool on_rectangle(const BoundaryCondition& record, const double* x) {
    if (x[record.axis] != record.box[2 * record.axis + 1]) return false;
    for (std::int32_t c = 0; c < 3; ++c)
        if (c != record.axis && !(x[c] - record.box[2 * c] >= -plane_tolerance &&
                                  x[c] - record.box[2 * c + 1] <= plane_tolerance))
            return false;
    return true;
}

bool in_disc(const RigidElement& record, const double* x) {
    const auto axis = static_cast<std::size_t>(std::clamp(record.region[4], 0.0, 2.0));
    double along = 0, across2 = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        const double d = x[c] - record.region[c];
        if (c == axis)
            along = std::abs(d);
        else
            across2 += d * d;
    }
    return along <= record.region[5] + rigid_tolerance &&
           std::sqrt(across2) <= record.region[3] + rigid_tolerance;
}

}  // namespace

bool in_box(const double* x, const std::array<double, 6>& box, double margin) {
    for (std::size_t c = 0; c < 3; ++c)
        if (!(box[2 * c] - margin <= x[c] && x[c] <= box[2 * c + 1] + margin)) return false;
    return true;
}

bool strictly_in_box(const double* x, const std::array<double, 6>& box, double margin) {
    for (std::size_t c = 0; c < 3; ++c)
        if (!(x[c] > box[2 * c] - margin && x[c] < box[2 * c + 1] + margin)) return false;
    return true;
}

std::vector<std::int32_t> select_nodes(const BoundaryCondition& record, const Mesh& mesh) {
    if (!record.set_name.empty()) return nodes_of_set(mesh, record.set_name);
    return nodes_where(mesh, [&](std::int32_t, const double* x) {
        switch (record.kind) {
            case Selection::plane:
                return on_plane(record, x);
            case Selection::area:
                return on_rectangle(record, x);
            case Selection::volume:
                return in_box(x, record.box, volume_tolerance);
        }
        return false;
    });
}

std::vector<std::int32_t> select_nodes(const VelocityRecord& record, const std::vector<Part>& parts,
                                       const Mesh& mesh) {
    if (record.kind != VelocitySelection::part) {
        BoundaryCondition selection;
        selection.kind = static_cast<Selection>(record.kind);
        selection.axis = record.axis;
        selection.box = record.box;
        return select_nodes(selection, mesh);
    }
    const std::size_t per_element = mesh.node_per_element();
    std::vector<char> on(mesh.node_num(), 0);
    for (std::size_t k = 0; k < mesh.connectivity.size(); ++k)
        if (is_of_part(parts, mesh.p_ele_part_id[k / per_element], record.name))
            on[node_index(mesh.connectivity[k])] = 1;
    std::vector<std::int32_t> nodes;
    for (std::size_t n = 0; n < on.size(); ++n)
        if (on[n]) nodes.push_back(static_cast<std::int32_t>(n));
    return nodes;
}

std::vector<std::int32_t> select_nodes(const AppliedForce& record, const Mesh& mesh) {
    if (!record.set_name.empty()) return nodes_of_set(mesh, record.set_name);
    return nodes_where(
        mesh, [&](std::int32_t, const double* x) { return strictly_in_box(x, record.box, force_tolerance); });
}

std::vector<std::int32_t> select_nodes(const RigidElement& record, const Mesh& mesh,
                                       const NodeElements& node_elements) {
    if (!record.set_name.empty()) return nodes_of_set(mesh, record.set_name);
    return nodes_where(mesh, [&](std::int32_t n, const double* x) {
        if (!node_elements.any(n)) return false;
        return record.kind == RigidSelection::round ? in_disc(record, x)
                                                    : in_box(x, record.region, rigid_tolerance);
    });
}

std::int32_t nearest_node(const Mesh& mesh, const NodeElements& node_elements,
                          const std::array<double, 3>& place) {
    std::int32_t nearest = 0;
    double best = std::numeric_limits<double>::infinity();
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (!node_elements.any(n)) continue;
        const double* x = mesh.node(n);
        double distance = 0;
        for (std::size_t c = 0; c < 3; ++c) distance += (x[c] - place[c]) * (x[c] - place[c]);
        if (distance < best) {
            best = distance;
            nearest = n;
        }
    }
    return nearest;
}

}  // namespace kestralum

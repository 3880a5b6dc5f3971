#include "fields/section_forces.h"

#include <algorithm>
#include <array>
#include <map>

#include "elements/element_type.h"

namespace kestralum {

namespace {

void add(Resultant& sum, const Vec3& arm, const Vec3& force) {
    sum.force = plus(sum.force, force);
    sum.moment = plus(sum.moment, cross(arm, force));
}

void add(Resultant& sum, const Resultant& other) {
    sum.force = plus(sum.force, other.force);
    sum.moment = plus(sum.moment, other.moment);
}

// The areas of the parts and the centre of all, where the body is.
SectionSum measure(const Mesh& mesh, const PlaneCut& cut, std::span<const double> u) {
    SectionSum out;
    const std::vector<double> rest = places_of(cut, mesh), places = places_of(cut, mesh, u);
    const CutTriangles triangles = triangles_of(cut);
    std::map<std::int32_t, double> area_of;
    for (std::size_t t = 0; t < triangles.polygon.size(); ++t) {
        const std::int32_t* v = triangles.corners.data() + 3 * t;
        const Vec3 a = triple(rest, v[0]);
        const double area = 0.5 * norm(cross(minus(triple(rest, v[1]), a), minus(triple(rest, v[2]), a)));
        area_of[mesh.p_ele_part_id[cut.element[triangles.polygon[t]]]] += area;
        out.area += area;
        for (int k = 0; k < 3; ++k) out.centre = plus(out.centre, times(area / 3, triple(places, v[k])));
    }
    if (out.area > 0) out.centre = times(1 / out.area, out.centre);
    for (const auto& [part, area] : area_of) out.parts.push_back({part, area, {}});
    return out;
}

// What a part carries; parts that are met at their rim alone have no area.
Resultant& carried_of(SectionSum& sum, std::int32_t part) {
    auto at = std::ranges::lower_bound(sum.parts, part, {}, &PartSection::part);
    if (at == sum.parts.end() || at->part != part) at = sum.parts.insert(at, {part, 0, {}});
    return at->carried;
}

}  // namespace

SectionSum section_forces(const SectionState& state, const SectionPlane& plane) {
    const Mesh& mesh = state.mesh;
    SectionSum out = measure(mesh, cut_mesh(mesh, plane), state.u);
    const std::vector<char> beyond = nodes_beyond(mesh, plane);
    const auto arm = [&](std::int64_t n) {
        const Vec3 x = state.u.empty() ? place_of(mesh, n) : plus(place_of(mesh, n), triple(state.u, n));
        return minus(x, out.centre);
    };
    std::array<double, 3 * most_nodes> f;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto nodes = mesh.element(e);
        const auto is_beyond = [&](std::int32_t n) { return beyond[node_index(n)] != 0; };
        if (std::ranges::all_of(nodes, is_beyond) || std::ranges::none_of(nodes, is_beyond)) continue;
        state.element_forces(e, std::span(f).first(3 * nodes.size()));
        Resultant& part = carried_of(out, mesh.p_ele_part_id[e]);
        for (std::size_t k = 0; k < nodes.size(); ++k)
            if (!is_beyond(nodes[k])) add(part, arm(node_index(nodes[k])), times(-1, triple(f, k)));
    }
    for (const PartSection& part : out.parts) add(out.carried, part.carried);
    if (state.internal_everywhere) out.carried = {};
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (beyond[n]) continue;
        const auto value = [&](std::span<const double> table) {
            return table.empty() ? Vec3{} : triple(table, n);
        };
        const Vec3 x = arm(n), load = value(state.applied), inertia = value(state.inertia);
        add(out.loads, x, load);
        add(out.inertia, x, inertia);
        if (state.internal_everywhere) add(out.carried, x, times(-1, value(state.internal)));
        if (!state.held.empty() && state.held[n])
            add(out.held, x, minus(plus(value(state.internal), inertia), load));
    }
    return out;
}

SectionSum section_of_stresses(const Mesh& mesh, const Frame& frame, const SectionPlane& plane) {
    const PlaneCut cut = cut_mesh(mesh, plane);
    SectionSum out = measure(mesh, cut, {});
    const std::size_t dofs = mesh.coordinates.size();
    const std::span<const double> stress = frame.node_stress;
    const std::vector<double> direct = values_at(cut, stress.first(dofs), 3),
                              shear = values_at(cut, stress.subspan(dofs, dofs), 3),
                              places = places_of(cut, mesh);
    const Vec3& n = plane.normal;
    const auto middle = [](std::span<const double> table, std::int32_t a, std::int32_t b) {
        return times(0.5, plus(triple(table, a), triple(table, b)));
    };
    const CutTriangles triangles = triangles_of(cut);
    for (std::size_t t = 0; t < triangles.polygon.size(); ++t) {
        if (std::ranges::binary_search(frame.removed, cut.element[triangles.polygon[t]])) continue;
        const std::int32_t* v = triangles.corners.data() + 3 * t;
        const Vec3 a = triple(places, v[0]);
        const double area = 0.5 * norm(cross(minus(triple(places, v[1]), a), minus(triple(places, v[2]), a)));
        Resultant& part = carried_of(out, mesh.p_ele_part_id[cut.element[triangles.polygon[t]]]);
        for (int k = 0; k < 3; ++k) {  // the rule of the sides' middles is exact for the moment of linear σ
            const std::int32_t p = v[k], q = v[(k + 1) % 3];
            const Vec3 s = middle(direct, p, q), r = middle(shear, p, q);  // xx yy zz; xy yz zx
            const Vec3 force{s[0] * n[0] + r[0] * n[1] + r[2] * n[2], r[0] * n[0] + s[1] * n[1] + r[1] * n[2],
                             r[2] * n[0] + r[1] * n[1] + s[2] * n[2]};
            add(part, minus(middle(places, p, q), out.centre), times(area / 3, force));
        }
    }
    for (const PartSection& part : out.parts) add(out.carried, part.carried);
    return out;
}

}  // namespace kestralum

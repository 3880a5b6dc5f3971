#include "system/reactions.h"

#include <algorithm>

#include <cmath>

#include "model/selection.h"
#include "model/symmetric3.h"
#include "system/support_springs.h"

namespace kestralum {

namespace {

bool is_held(const RigidBody& body) {
    return !body.fixed.empty() || !body.held.empty();
}

// Forces at places, gathered as force and moment about one support's centre, and node by node.
class Gather {
public:
    // nodal: dof_num, or empty.
    Gather(const Model& model, const Mesh& mesh, std::span<const std::int32_t> reached,
           std::span<double> nodal)
        : nodal_(nodal) {
        for (std::size_t r = 0; r < model.boundary_conditions.size(); ++r) {
            SupportReaction& out = reactions.emplace_back();
            out.name = model.boundary_conditions[r].name;
            if (reached[r] == 0) continue;
            const auto nodes = select_nodes(model.boundary_conditions[r], mesh);
            for (const std::int32_t n : nodes)
                for (std::size_t c = 0; c < 3; ++c)
                    out.centre[c] += mesh.node(n)[c] / static_cast<double>(nodes.size());
        }
    }
    void add(std::int32_t record, const Vec3& place, const Vec3& force, const Vec3& moment = {}) {
        SupportReaction& out = reactions[record];
        const Vec3 turn = plus(moment, cross(minus(place, out.centre), force));
        for (std::size_t c = 0; c < 3; ++c) {
            out.force[c] += force[c];
            out.moment[c] += turn[c];
        }
    }
    void add_at(std::int32_t record, std::int32_t node, const Vec3& place, const Vec3& force) {
        add(record, place, force);
        add_nodal(node, force);
    }
    void add_nodal(std::int32_t node, const Vec3& force) {
        for (std::size_t c = 0; c < 3 && !nodal_.empty(); ++c) nodal_[3 * std::size_t(node) + c] += force[c];
    }
    std::vector<SupportReaction> reactions;

private:
    std::span<double> nodal_;
};

// Nodes of a body that supports hold, ascending.
std::vector<std::int32_t> held_members(const RigidBody& body) {
    std::vector<std::int32_t> out = body.fixed;
    for (const HeldDirection& held : body.held) out.push_back(held.node);
    std::ranges::sort(out);
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

// Spreads a force and its moment about their centre over places as the smallest forces (in the sum of their
// squares) that make them: F/n + ω × r with Σ r × (ω × r) = M. Places on a line leave the moment about it.
template <typename Add>
void spread(std::span<const Vec3> places, const Vec3& force, const Vec3& moment, Add add) {
    const double share = 1 / static_cast<double>(places.size());
    Vec3 centre{};
    for (const Vec3& x : places) centre = plus(centre, times(share, x));
    double J[6]{}, values[3], axes[9];  // Σ r² 1 - r rᵀ
    for (const Vec3& x : places) {
        const Vec3 r = minus(x, centre);
        for (std::size_t c = 0; c < 3; ++c) {
            J[c] += dot(r, r) - r[c] * r[c];
            J[3 + c] -= r[c] * r[(c + 1) % 3];
        }
    }
    symmetric_eigen3(J, values, axes);
    const double least = 1e-9 * std::max({values[0], values[1], values[2]});
    Vec3 omega{};
    for (std::size_t k = 0; k < 3; ++k) {
        const Vec3 axis{axes[3 * k], axes[3 * k + 1], axes[3 * k + 2]};
        if (values[k] > least) omega = plus(omega, times(dot(axis, moment) / values[k], axis));
    }
    for (std::size_t k = 0; k < places.size(); ++k)
        add(k, plus(times(share, force), cross(omega, minus(places[k], centre))));
}

// The support that has a member of the body, the first of the file.
std::int32_t record_of(const RigidBody& body, const DofNumbering& numbering) {
    std::int32_t record = body.held.empty() ? -1 : body.held.front().record;
    for (std::size_t k = 0; k < numbering.fixed_nodes.size(); ++k)
        if (std::ranges::binary_search(body.fixed, numbering.fixed_nodes[k]))
            return record < 0 ? numbering.fixed_record[k] : std::min(record, numbering.fixed_record[k]);
    return record;
}

}  // namespace

std::vector<char> reaction_nodes(const Freedoms& freedoms, std::int32_t nodes) {
    std::vector<char> wanted(nodes, 0);
    for (const std::int32_t n : freedoms.numbering.fixed_nodes) wanted[n] = 1;
    for (const HeldDof& held : freedoms.constraints.held) wanted[held.dof / 3] = 1;
    for (const std::int32_t n : freedoms.constraints.map.special_nodes())
        if (freedoms.constraints.map.is_tied(n)) wanted[n] = 1;
    for (const RigidBody& body : freedoms.rigid.bodies)
        if (is_held(body))
            for (const std::int32_t n : body.members) wanted[n] = 1;
    return wanted;
}

std::vector<SupportReaction> support_reactions(const Model& model, const Mesh& mesh, const Freedoms& freedoms,
                                               std::span<const double> residual, std::span<const Vec6> bodies,
                                               std::span<const double> u, Places places,
                                               std::span<const RigidState> states, std::span<double> nodal) {
    const DofNumbering& numbering = freedoms.numbering;
    const auto place = [&](std::int32_t n) {
        return places == Places::displaced ? plus(place_of(mesh, n), triple(u, n)) : place_of(mesh, n);
    };
    const ConstraintMap& map = freedoms.constraints.map;
    Gather gather(model, mesh, numbering.selected, nodal);
    std::vector<double> left(residual.begin(), residual.end());
    for (std::size_t r = 0; r < model.boundary_conditions.size(); ++r) {
        const BoundaryCondition& record = model.boundary_conditions[r];
        if (!record.options.spring.given() && !record.options.normal_spring.given()) continue;
        std::vector<double> springs(left.size(), 0.0);
        add_spring_forces(record, mesh, freedoms.node_elements, u, springs);
        for (std::int32_t n = 0; n < mesh.node_num(); ++n)
            gather.add_at(static_cast<std::int32_t>(r), n, place(n), times(-1, triple(springs, n)));
        for (std::size_t d = 0; d < left.size(); ++d) left[d] += springs[d];
    }
    map.gather(left);
    std::vector<char> counted(mesh.node_num(), 0);
    for (std::size_t b = 0; b < freedoms.rigid.bodies.size(); ++b) {
        const RigidBody& body = freedoms.rigid.bodies[b];
        if (!is_held(body)) continue;
        for (const std::int32_t n : body.members) counted[n] = 1;
        Vec6 sum = resultant(body, states.empty() ? RigidState{} : states[b], mesh, left);
        for (std::size_t c = 0; c < 6; ++c) sum[c] += bodies[b][c];
        const Vec3 pivot = states.empty() ? body.pivot : plus(body.pivot, states[b].u);
        const Vec3 force{sum[0], sum[1], sum[2]}, moment{sum[3], sum[4], sum[5]};
        gather.add(record_of(body, numbering), pivot, force, moment);
        const std::vector<std::int32_t> nodes = held_members(body);
        std::vector<Vec3> where;
        Vec3 centre{};
        for (const std::int32_t n : nodes) {
            where.push_back(place(n));
            centre = plus(centre, times(1 / static_cast<double>(nodes.size()), where.back()));
        }
        spread(where, force, plus(moment, cross(minus(pivot, centre), force)),
               [&](std::size_t k, const Vec3& f) { gather.add_nodal(nodes[k], f); });
    }
    for (std::size_t k = 0; k < numbering.fixed_nodes.size(); ++k) {
        const std::int32_t n = numbering.fixed_nodes[k];
        if (counted[n]) continue;
        counted[n] = 1;
        gather.add_at(numbering.fixed_record[k], n, place(n), triple(left, n));
    }
    for (const HeldDof& held : freedoms.constraints.held)
        gather.add_at(held.record, held.dof / 3, place(held.dof / 3),
                      times(left[held.dof], map.axis(held.dof)));
    return gather.reactions;
}

std::array<double, 3> sum_of(std::span<const SupportReaction> reactions) {
    std::array<double, 3> sum{};
    for (const SupportReaction& reaction : reactions)
        for (std::size_t c = 0; c < 3; ++c) sum[c] += reaction.force[c];
    return sum;
}

}  // namespace kestralum

#include "analysis/static/stress_stiffness.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "analysis/static/static_solution.h"
#include "conditions/turning_stiffness.h"
#include "elements/linear_element.h"
#include "elements/stresses.h"
#include "model/format.h"
#include "solver/dense_eigen.h"
#include "system/iterative_factor.h"
#include "system/linear_loads.h"
#include "system/support_springs.h"
#include "system/transformed.h"

namespace kestralum {

namespace {

struct State {
    CaseTerms terms;
    LoadSet set;
    LinearLoad load;            // the sum of the terms
    std::vector<double> q;      // per equation
    std::vector<double> u;      // dof_num, m
    PointResults points;        // no stress inside rigid bodies
    DofNumbering before_rigid;  // of the free places of q, members included
};

// All loads together, or those of the case or combination asked for.
bool find_terms(Job& job, CaseTerms& out) {
    std::vector<CaseTerms> frames;
    if (!find_cases(job, frames)) return false;
    out = job.options.load_case.empty() ? CaseTerms{{}, {{std::string(), 1.0}}} : frames.front();
    return true;
}

bool find_stresses(Job& job, const AssembledSystem& system, State& state) {
    const Mesh& mesh = job.mesh();
    state.u = displacements(mesh, system.freedoms, state.q, state.load);
    point_stresses(mesh, job.model.parts, system.elasticity, state.u, job.threads(), state.points,
                   job.progress, {.form = job.hexahedra(), .initial = state.load.initial_strain});
    const std::vector<char> inside = system.freedoms.rigid.elements_inside(mesh);
    const std::size_t values = state.points.stress.size() / mesh.element_num();
    for (std::size_t e = 0; e < inside.size(); ++e)
        if (inside[e]) std::fill_n(state.points.stress.begin() + std::ptrdiff_t(values * e), values, 0.0);
    return job.goes_on();
}

bool solve_state(Job& job, const AssembledSystem& system, BorderedFactor& factor, State& state) {
    for (const auto& [name, share] : state.terms.terms)
        add_load(state.load, share, load_of_case(job, state.set, system.freedoms, name));
    state.q = right_hand_side(job, system, state.load);
    job.progress.print("Static Analysis Start\n");
    if (!solve_static(job, system, state.q, 1, factor) || job.report().status != RunStatus::done)
        return false;
    RunReport& report = job.report();
    for (std::size_t d = 0; d < state.load.applied.nodal.size(); ++d)
        report.applied[d % 3] += state.load.applied.nodal[d];
    for (const Vec6& force : state.load.applied.rigid)
        for (std::size_t c = 0; c < 3; ++c) report.applied[c] += force[c];
    if (report.negative_pivots > 0)
        return job.fail(RunStatus::failed, formatted("the stiffness at rest has %ld negative pivots: the "
                                                     "body is unstable without any load",
                                                     static_cast<long>(report.negative_pivots)));
    return find_stresses(job, system, state);
}

// Kσ + Kp on all degrees of freedom, then on those of system.km, in K_value.
bool assemble_on_pattern(Job& job, const AssembledSystem& system, const State& state, SparseKM& km) {
    const Mesh& mesh = job.mesh();
    SilentProgress silent(job.progress);
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, system.freedoms.node_elements, silent);
    count_overlap(neighbours, km, silent);
    build_index(neighbours, km, silent);
    if (!job.goes_on()) return false;
    find_diagonals(km);
    const ElementType& type = element_type(mesh.element_type);
    assemble_km(
        mesh, neighbours,
        [&](std::int32_t e, double* ke, double*) {
            ElementPoints points;
            if (!evaluate_points(type, mesh, e, points)) return false;
            double stress[6 * most_points];
            balancing_stresses(type, points, job.hexahedra(),
                               state.points.stress.data() + std::ptrdiff_t(6) * type.points * e, stress);
            geometric_stiffness(type, points, stress, ke);
            return true;
        },
        job.threads(), km, silent, MassStorage::none);
    if (!job.goes_on()) return false;
    const AddBlock add = adding_to(km, km.K_value);
    std::vector<double> scaled;
    for (const auto& [name, share] : state.terms.terms) {
        const double factor = share;
        add_follower_stiffness(state.set, mesh, 1, Growth::whole, name, {},
                               [&](std::span<const std::int32_t> nodes, std::span<const double> block) {
                                   scaled.assign(block.begin(), block.end());
                                   for (double& v : scaled) v *= factor;
                                   add(nodes, scaled);
                               });
    }
    transform(system.freedoms.constraints.map, job.threads(), km, job.progress);
    if (!job.goes_on()) return false;
    keep_rows(state.before_rigid.dof_map, km);
    return true;
}

// Forces on one body and moments beside them; internal ones less loads.
struct BodyForces {
    std::vector<ForceAt> forces;
    Vec3 moment{};
};

Vec3 point_of(const RigidBody& body, const Vec3& place, std::span<const double> q, Vec3& turn) {
    Vec6 all{};
    for (std::size_t k = 0; k < body.motions.size(); ++k)
        for (std::size_t c = 0; c < 6; ++c) all[c] += q[body.first + k] * body.motions[k][c];
    turn = triple(all, 1);
    return plus(triple(all, 0), cross(turn, minus(place, body.pivot)));
}

// The springs between bodies: their forces, and in G_rr what the moment m of one does when the bodies turn by
// θ1 and θ2: of the second variation of its energy, m·½ (θ1 × θ2), the part between the two.
void add_combines(const Job& job, const RigidSystem& rigid, std::span<const double> q,
                  std::vector<BodyForces>& bodies, std::span<double> G_rr) {
    for (const RigidCombine& record : job.model.rigid_combines) {
        const RigidBody &first = rigid.bodies[record.element[0]], &second = rigid.bodies[record.element[1]];
        const Vec3 middle = times(0.5, plus(first.reference, second.reference));
        Vec3 turn1, turn2, f, m;
        const Vec3 u1 = point_of(first, middle, q, turn1), u2 = point_of(second, middle, q, turn2);
        for (std::size_t c = 0; c < 3; ++c) {
            f[c] = record.stiffness[c] * (u2[c] - u1[c]);
            m[c] = record.stiffness[3 + c] * (turn2[c] - turn1[c]);
        }
        for (std::size_t side = 0; side < 2; ++side) {
            BodyForces& of = bodies[record.element[side]];
            const double sign = side == 0 ? -1 : 1;
            of.forces.push_back({middle, times(sign, f)});
            of.moment = plus(of.moment, times(sign, m));
        }
        for (std::size_t i = 0; i < first.motions.size(); ++i)
            for (std::size_t j = 0; j < second.motions.size(); ++j) {
                const double half =
                    0.5 * dot(m, cross(triple(first.motions[i], 1), triple(second.motions[j], 1)));
                const std::size_t row = first.first + i, column = second.first + j, n = rigid.equations;
                G_rr[row * n + column] += half;
                G_rr[column * n + row] += half;
            }
    }
}

// What supports hold members of a body with, beside its other forces: of all that balance them the smallest.
void add_reactions(const RigidBody& body, const Mesh& mesh, BodyForces& of) {
    std::vector<HeldDirection> held(body.held);
    for (const std::int32_t n : body.fixed)
        for (std::size_t c = 0; c < 3; ++c) {
            HeldDirection& one = held.emplace_back();
            one.node = n;
            one.direction = {};
            one.direction[c] = 1;
        }
    if (held.empty() || !(body.size > 0)) return;
    const auto load_of = [&](const Vec3& place, const Vec3& force) {
        const Vec3 moment = times(1 / body.size, cross(minus(place, body.pivot), force));
        return Vec6{force[0], force[1], force[2], moment[0], moment[1], moment[2]};
    };
    Vec6 rest{};
    for (std::size_t c = 0; c < 3; ++c) rest[3 + c] = of.moment[c] / body.size;
    for (const ForceAt& at : of.forces)
        for (std::size_t c = 0; c < 6; ++c) rest[c] += load_of(at.place, at.force)[c];
    std::vector<double> A(36, 0.0), values;  // Σ a aᵀ, then its eigenvectors
    for (const HeldDirection& h : held) {
        const Vec6 a = load_of(place_of(mesh, h.node), h.direction);
        for (std::size_t i = 0; i < 6; ++i)
            for (std::size_t j = 0; j < 6; ++j) A[6 * i + j] += a[i] * a[j];
    }
    if (!symmetric_eigen(6, A, values)) return;
    Vec6 y{};
    for (std::size_t k = 0; k < 6; ++k) {
        if (values[k] < 1e-9 * values[5]) continue;
        double share = 0;
        for (std::size_t c = 0; c < 6; ++c) share -= A[6 * k + c] * rest[c] / values[k];
        for (std::size_t c = 0; c < 6; ++c) y[c] += share * A[6 * k + c];
    }
    for (const HeldDirection& h : held) {
        const Vec3 place = place_of(mesh, h.node);
        const Vec6 a = load_of(place, h.direction);
        double size = 0;
        for (std::size_t c = 0; c < 6; ++c) size += a[c] * y[c];
        of.forces.push_back({place, times(size, h.direction)});
    }
}

// Adds to G_rr, symmetric, what the forces on the bodies do when they turn.
void add_turning(const Job& job, const AssembledSystem& system, const State& state, std::span<double> G_rr) {
    const Mesh& mesh = job.mesh();
    const RigidSystem& rigid = system.freedoms.rigid;
    const std::vector<char> all(mesh.node_num(), 1);
    std::vector<double> nodal = internal_forces(mesh, state.points, all, job.hexahedra());
    for (const BoundaryCondition& record : job.model.boundary_conditions)
        add_spring_forces(record, mesh, system.freedoms.node_elements, state.u, nodal);
    for (std::size_t d = 0; d < nodal.size(); ++d) nodal[d] -= state.load.applied.nodal[d];
    system.freedoms.constraints.map.gather(nodal);
    std::vector<BodyForces> bodies;
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        const RigidBody& body = rigid.bodies[b];
        const Vec3 force = triple(state.load.applied.rigid[b], 0),
                   moment = triple(state.load.applied.rigid[b], 1);
        BodyForces& of = bodies.emplace_back();
        of.forces = forces_on_members(body, mesh, nodal);
        of.forces.push_back({body.reference, times(-1, force)});
        of.moment = minus(cross(minus(body.reference, body.pivot), force), moment);
    }
    std::vector<double> turning(G_rr.size(), 0.0);
    const std::size_t n = rigid.equations;
    add_combines(job, rigid, std::span(state.q).last(n), bodies, turning);
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        add_reactions(rigid.bodies[b], mesh, bodies[b]);
        add_turning_stiffness(rigid.bodies[b], {}, bodies[b].forces, rigid.equations, turning);
    }
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j)
            G_rr[i * n + j] += 0.5 * (turning[i * n + j] + turning[j * n + i]);
}

double largest(std::span<const double> values) {
    double out = 0;
    for (const double v : values) out = std::max(out, std::abs(v));
    return out;
}

// How large the stresses are, and whether they, or the forces on rigid bodies, are more than the rounding of
// strains and motions.
void measure(const Job& job, const AssembledSystem& system, const State& state, StressStiffness& out) {
    constexpr double share = 1e-10, share_of_bodies = 1e-13;
    double stiffest = 0;
    for (const std::int32_t part : job.mesh().p_ele_part_id)
        stiffest = std::max(stiffest, job.model.materials[job.model.parts[part].material_id].young);
    out.strain = largest(state.points.stress) / stiffest;
    const double scale = largest(state.points.strain) + largest(state.u) / job.mesh().max_length;
    out.stressed =
        out.strain > share * scale || largest(out.G_rr) > share_of_bodies * largest(system.border.K_rr);
}

}  // namespace

bool find_stress_stiffness(Job& job, AssembledSystem& system, const StressStiffnessNeeds& needs,
                           std::unique_ptr<BorderedFactor>& factor, StressStiffness& out) {
    for (const RigidCombine& record : job.model.rigid_combines)
        if (record.body_axes)
            return job.fail(RunStatus::bad_input,
                            "rigid combine " + record.name +
                                ": axes=body is not known to buckling and to modes under load: leave it out");
    State state;
    if (!find_terms(job, state.terms) || !assemble_system(job, system, needs.with_mass)) return false;
    job.progress.print("Force Vector\n");
    if (!resolve_loads(job, system.freedoms,
                       unstrained_diagonal(job, system.freedoms, diagonal_of(system.km)), state.set))
        return false;
    job.progress.print("Force Vector Complete\n");
    state.before_rigid = system.freedoms.numbering;
    if (!transform_rigid(job, system, needs.with_mass)) return false;
    factor = plan_bordered(job, system, needs.factors_on_disk, true);
    if (!factor) return false;
    if (auto* const levels = dynamic_cast<IterativeFactor*>(factor->free())) levels->give_way(needs.direct);
    if (!solve_state(job, system, *factor, state)) return false;
    job.clock.begin("assemble");
    SparseKM km;
    Border border;
    if (!assemble_on_pattern(job, system, state, km)) return false;
    if (!system.freedoms.rigid.empty()) {
        rigid_transform(system.freedoms.rigid, {}, job.mesh(), false, km, state.before_rigid, border);
        add_turning(job, system, state, border.K_rr);
    }
    assert(km.col_index == system.km.col_index);
    out.G = std::move(km.K_value);
    out.G_fr = std::move(border.K_fr);
    out.G_rr = std::move(border.K_rr);
    measure(job, system, state, out);
    const auto finite = [](double v) { return std::isfinite(v); };
    return (std::ranges::all_of(out.G, finite) && std::ranges::all_of(out.G_rr, finite)) ||
           job.fail(RunStatus::failed, "the stiffness of the stresses is not finite");
}

}  // namespace kestralum

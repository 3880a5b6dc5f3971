#include <algorithm>
#include <cmath>
#include <numeric>

#include "analysis/explicit/explicit_setup.h"
#include "model/format.h"
#include "system/load_set.h"

namespace kestralum {

namespace {

constexpr double gravity_acceleration = 9.80665;  // m/s², standard (ISO 80000-3)

double sum_of(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

bool find_diagonals(Job& job, const Freedoms& freedoms, SetUp& set_up) {
    const Mesh& mesh = job.mesh();
    const Elasticity elasticity = build_elasticity(job.model.materials, job.progress);
    job.progress.print("Set [K],[M]\n");
    if (job.progress.lines_wanted()) {
        const Mesh& shown = job.run.mesh;
        const NodeNeighbours neighbours = neighbours_of_nodes(shown, elements_of_nodes(shown), job.progress);
        job.progress.print("[K],[M] element num=%ld\n", print_pattern(neighbours, job.progress));
    }
    std::vector<PartMaterial> of_part;
    for (const Part& part : job.model.parts)
        of_part.push_back(
            {moduli(elasticity, part.material_id), job.model.materials[part.material_id].density});
    set_up.diagonals =
        matrix_diagonals(mesh, of_part, freedoms.numbering.dof_map, job.threads(), job.progress);
    if (const std::int32_t bad = set_up.diagonals.bad_element; bad >= 0)
        return job.fail(RunStatus::failed, place_of_element(job, bad) +
                                               ": the Jacobian is not positive (flat or inverted element)");
    return job.goes_on();
}

// The consistent mass' diagonal, scaled to the consistent total.
void lump_mass(Job& job, SetUp& set_up) {
    const double total = set_up.diagonals.mass_sum / 3.0;
    job.progress.print("Mass total=%e[kg]\n", total);
    set_up.lumped = set_up.diagonals.M;
    const double diagonal = sum_of(set_up.lumped) / 3.0;
    job.progress.print("Diag Mass total=%e[kg]\n", diagonal);
    for (double& m : set_up.lumped) m = m / diagonal * total;
    job.progress.print("Modified Diag Mass total=%e[kg]\n", sum_of(set_up.lumped) / 3.0);
    set_up.mass_factor = total / diagonal;
    job.report().total_mass = total;
}

void tell_added(Job& job, const AddedMass& added) {
    double sum = 0;
    for (std::size_t p = 0; p < added.parts.size(); ++p) {
        sum += added.parts[p];
        if (added.elements[p] > 0)
            remark(job, formatted("scaled_step: %d elements of part %s get %.6g kg, %.3g %% of its mass",
                                  added.elements[p], job.model.parts[p].name.c_str(), added.parts[p],
                                  100 * added.parts[p] / added.present[p]));
    }
    const double present = sum_of(added.present);
    remark(job, formatted("scaled_step: %.6g kg are added to %.6g kg, %.3g %%", sum, present,
                          100 * sum / present));
}

// scaled_step: mass for the elements that would want a smaller one.
bool scale_mass(Job& job, SetUp& set_up, ExplicitState& s) {
    const double step = job.model.control.scaled_step;
    if (!(step > 0)) return true;
    bound_steps(job, set_up, s);
    const AddedMass added = s.bound->add_mass(step);
    set_up.added.resize(set_up.lumped.size());
    for (std::size_t d = 0; d < set_up.added.size(); ++d) {
        set_up.added[d] = added.nodes[d / 3];
        set_up.lumped[d] += set_up.added[d];
    }
    if (!std::isfinite(sum_of(set_up.added)))
        return job.fail(RunStatus::bad_input, formatted("scaled_step = %g: no mass makes it stable", step));
    tell_added(job, added);
    return true;
}

// Springs of supports, and what tied nodes give to their masters: their mass, and their stiffness for the
// damping of the masters.
bool gather_ties(Job& job, ExplicitState& s, SetUp& set_up) {
    const std::string wrong = s.springs.collect(job, s.freedoms.node_elements);
    if (!wrong.empty()) return job.fail(RunStatus::bad_input, wrong);
    set_up.stiffness = set_up.diagonals.K;
    s.springs.add_diagonal(set_up.stiffness);
    const ConstraintMap& map = s.freedoms.constraints.map;
    if (map.empty()) return true;
    set_up.own_mass = set_up.lumped;
    map.gather_mass(set_up.lumped);
    if (!set_up.added.empty()) map.gather_mass(set_up.added);
    const auto special = map.special_nodes();
    for (std::size_t k = 0; k < special.size(); ++k)
        for (std::size_t c = 0; c < 3 && map.is_tied(special[k]); ++c)
            for (const auto& [master, weight] : map.weights(k))
                set_up.stiffness[3 * master + c] += weight * weight * set_up.stiffness[3 * special[k] + c];
    return true;
}

// Damping of the free degrees of freedom, c = 2 √(k m) C_alfa, and the lines that check the masses.
void find_damping(Job& job, const SetUp& set_up, ExplicitState& state) {
    const auto& free = state.freedoms.numbering.free_dofs;
    if (free.size() < set_up.lumped.size()) {  // the lines of a matrix whose fixed rows are taken out
        job.progress.print(" Eliminate fix index\n");
        job.progress.print(" Eliminate fix index Complete\n");
    }
    std::array<double, 3> sum{};
    std::size_t i = 0;
    for (const std::int32_t n : job.steps->number)  // the lines follow the run's nodes
        for (std::int32_t dof = 3 * n; dof < 3 * n + 3; ++dof) {
            if (state.freedoms.numbering.dof_map[dof] < 0) continue;
            const double k = set_up.stiffness[dof], m = set_up.lumped[dof];
            job.progress.print("diagM[%zu]:%.3e\r", i++, m);
            state.damping[4 * (dof / 3) + dof % 3] = 2 * std::sqrt(k * m) * job.model.control.c_alfa;
            sum[dof % 3] += m;
        }
    state.damped = job.model.control.c_alfa > 0;
    job.progress.print("\n");
    job.progress.print("Mass check\n");
    job.progress.print("  mx = %.3e, my = %.3e, mz = %.3e\n", sum[0], sum[1], sum[2]);
    job.progress.print("vk=%e\n", set_up.diagonals.stiffness_sum);
    job.progress.print("K,M sparse complete\n");
}

void size_state(const Mesh& mesh, const SetUp& set_up, ExplicitState& s) {
    const std::size_t nodes = mesh.node_num();
    for (LineDoubles* array :
         {&s.X, &s.x, &s.u, &s.du, &s.v, &s.v_new, &s.R, &s.F, &s.F_contact, &s.mass, &s.damping, &s.a, &s.b})
        array->assign(4 * nodes, 0.0);
    s.owned = static_cast<std::int64_t>(nodes);
    s.supported.assign(4 * nodes, 1);
    for (std::size_t d = 0; d < 3 * nodes; ++d) {
        const std::size_t at = 4 * (d / 3) + d % 3;
        s.X[at] = s.x[at] = mesh.coordinates[d];
        s.mass[at] = set_up.lumped[d];
        s.supported[at] = s.freedoms.numbering.dof_map[d] < 0;
    }
}

bool set_loads(Job& job, const SetUp& set_up, ExplicitState& s) {
    job.progress.print("Force Vector\n");
    std::vector<double> stiffness;
    for (std::int32_t dof : s.freedoms.numbering.free_dofs) stiffness.push_back(set_up.diagonals.K[dof]);
    LoadSet loads;
    if (!resolve_loads(job, s.freedoms, stiffness, loads)) return false;
    job.progress.print("Force Vector Complete\n");
    s.heat.emplace(job, loads);
    if (s.heat->empty()) s.heat.reset();
    std::vector<double> constant(job.run.load.size(), 0.0);
    s.loads.emplace(job, std::move(loads), constant);
    for (std::size_t d = 0; d < constant.size(); ++d) {
        s.F[4 * (d / 3) + d % 3] = constant[d];
        job.report().applied[d % 3] += job.run.load[d];
    }
    job.run.load = of_run_nodes(job, job.run.load);
    const AnalysisControl& control = job.model.control;
    for (std::size_t k = std::max(control.gravity_axis, 0); k < s.F.size() && control.gravity_axis >= 0;
         k += 4) {
        const double weighs =
            set_up.added.empty() ? s.mass[k] : s.mass[k] - set_up.added[3 * (k / 4) + k % 4];
        s.F[k] += weighs * control.gravity_sign * gravity_acceleration;
    }
    if (s.loads->varies())
        s.loads->keep_constant(s.F);
    else
        s.loads.reset();
    return true;
}

// The rigid bodies with their masses.
void set_bodies(Job& job, const SetUp& set_up, ExplicitState& s) {
    const RigidSystem& system = s.freedoms.rigid;
    if (system.empty()) return;
    const Mesh& mesh = job.mesh();
    std::vector<RigidForce> forces;
    for (const RigidForce& force : job.model.rigid_forces)
        if (acts_in_case(force.options.case_name, job.options.load_case)) forces.push_back(force);
    s.bodies.emplace(system, mesh, set_up.lumped, forces, job.model.rigid_combines);
    s.acting.assign(4 * mesh.node_num(), 0.0);
    std::int32_t free = 0;
    for (std::int32_t dof : s.freedoms.numbering.free_dofs) free += !s.bodies->is_member(dof / 3);
    s.bodies->print_masses(free, job.progress);
    job.report().free_dofs = free + system.equations;
    for (const ExplicitBody& body : s.bodies->bodies())
        for (std::int32_t n : body.geometry.members) {
            const auto k = 4 * n;
            std::fill_n(s.damping.begin() + std::ptrdiff_t(k), 3, 0.0);
        }
    for (std::size_t b = 0; b < system.bodies.size(); ++b) {
        const Vec6 force = rigid_force_resultant(system, static_cast<std::int32_t>(b), {}, forces);
        for (std::size_t c = 0; c < 3; ++c) job.report().applied[c] += force[c];
    }
    s.freedoms.rigid = s.bodies->system();  // pivots are mass centres now
}

// Supports with options and ties.
void set_supports(const Job& job, const SetUp& set_up, ExplicitState& s) {
    const bool options = std::ranges::any_of(job.model.boundary_conditions,
                                             [](const BoundaryCondition& b) { return b.options.given; });
    if (options || !job.model.ties.empty())
        s.supports.emplace(job, s.freedoms.constraints, set_up.stiffness, set_up.lumped,
                           job.model.control.c_alfa);
}

}  // namespace

bool set_inertia(Job& job, SetUp& set_up, ExplicitState& s) {
    if (!find_diagonals(job, s.freedoms, set_up)) return false;
    lump_mass(job, set_up);
    if (!scale_mass(job, set_up, s)) return false;
    if (!gather_ties(job, s, set_up)) return false;
    size_state(job.mesh(), set_up, s);
    find_damping(job, set_up, s);
    set_supports(job, set_up, s);
    if (!set_loads(job, set_up, s)) return false;
    set_bodies(job, set_up, s);
    return true;
}

}  // namespace kestralum

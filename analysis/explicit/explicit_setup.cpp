#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "analysis/explicit/explicit_state.h"
#include "model/format.h"
#include "model/free_faces.h"
#include "model/mesh_sets.h"
#include "model/selection.h"
#include "solver/memory_limits.h"
#include "system/diagonals.h"
#include "system/load_set.h"

namespace kestralum {

namespace {

constexpr double gravity_acceleration = 9.80665;  // m/s², standard (ISO 80000-3)
constexpr std::int32_t smallest_team = 4000;      // nodes
constexpr double end_tolerance =
    1.0000001;  // keeps the last step of an end_time that is a multiple of d_time

void remark(Job& job, std::string line) {
    job.progress.notice("%s", line.c_str());
    job.note(std::move(line));
}

// Materials and settings that explicit stepping cannot do without.
bool check_input(Job& job) {
    if (!check_analysable(job) || !check_case(job)) return false;
    const AnalysisControl& c = job.model.control;
    const auto refuse = [&](std::string line) { return job.fail(RunStatus::bad_input, std::move(line)); };
    for (std::int32_t p : job.model.mesh.p_ele_part_id) {
        const Material& m = job.model.materials[job.model.parts[p].material_id];
        if (!(m.density > 0 && m.young > 0 && m.poisson > -1 && m.poisson < 0.5 && std::isfinite(m.density) &&
              std::isfinite(m.young)))
            return refuse(
                formatted("material %s: the explicit analysis wants a density and E above 0 and Poisson's "
                          "ratio between -1 and 0.5",
                          m.name.c_str()));
        if (const std::string wrong = wrong_plastic_constant(m); c.plastic && !wrong.empty())
            return refuse(wrong);
    }
    if (!(c.d_time >= 0) || !std::isfinite(c.d_time))
        return refuse(formatted("d_time = %g: the time step must not be negative", c.d_time));
    if (!(c.end_time >= 0) || !std::isfinite(c.end_time))
        return refuse(formatted("end_time = %g: the end time must not be negative", c.end_time));
    if (!(c.c_alfa >= 0) || !std::isfinite(c.c_alfa))
        return refuse(formatted("C_alfa = %g: the damping must not be negative", c.c_alfa));
    return true;
}

// The surface for contact, when it is on; what keeps a pair from acting is said.
void extract_surface(Job& job, ExplicitState& s) {
    const auto& pairs = job.model.explicit_tables.contacts;
    if (!job.model.control.element_contact) {
        if (!pairs.empty()) remark(job, "Element_contact is off: the pairs of ELEMENT_CONTACT do not act");
        return;
    }
    std::vector<SurfaceTriangle> surface = surface_triangles(job.mesh());
    s.contact_nodes = surface_nodes(surface, job.mesh().node_num());
    job.progress.print("Nnode_s=%zu\n", s.contact_nodes.size());
    job.progress.print("Ntri_s=%zu\n", surface.size());
    s.contacts.emplace(pairs, job.model.parts, job.mesh(), std::move(surface));
    for (std::size_t k = 0; k < pairs.size(); ++k) {
        if (!s.contacts->can_act(k))
            remark(job, "contact " + pairs[k].name + ": a part of it has no surface in this model");
        if (const std::int32_t common = s.contacts->common_nodes(k); common > 0)
            remark(job, formatted("contact %s: parts %s and %s have %d nodes in common, merged "
                                  "where they touched: nothing slides or parts there",
                                  pairs[k].name.c_str(), pairs[k].part_name[0].c_str(),
                                  pairs[k].part_name[1].c_str(), common));
    }
    if (!pairs.empty()) return;
    s.contacts.reset();
    s.contact_nodes.clear();
}

double sum_of(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

// What the set-up makes and the steps do not need.
struct SetUp {
    MatrixDiagonals diagonals;
    std::vector<double> stiffness;  // of the places of q, with the supports' springs, N/m
    std::vector<double> lumped;     // per degree of freedom, kg
    std::vector<double> own_mass;   // the same before tied nodes gave theirs away; empty: no node is tied
    double mass_factor = 1;         // lumped mass over the consistent diagonal
};

bool find_diagonals(Job& job, const Freedoms& freedoms, SetUp& set_up) {
    const Mesh& mesh = job.mesh();
    const Elasticity elasticity = build_elasticity(job.model.materials, job.progress);
    job.progress.print("Set [K],[M]\n");
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, freedoms.node_elements, job.progress);
    job.progress.print("[K],[M] element num=%ld\n", print_pattern(neighbours, job.progress));
    set_up.diagonals = matrix_diagonals(mesh, freedoms.node_elements, neighbours,
                                        element_matrices(job, elasticity, nullptr, HexahedronForm::full),
                                        freedoms.numbering.dof_map, job.threads(), job.progress);
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
    for (std::size_t i = 0; i < free.size(); ++i) {
        const std::int32_t dof = free[i];
        const double k = set_up.stiffness[dof], m = set_up.lumped[dof];
        job.progress.print("diagM[%zu]:%.3e\r", i, m);
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
    const AnalysisControl& control = job.model.control;
    for (std::size_t k = std::max(control.gravity_axis, 0); k < s.F.size() && control.gravity_axis >= 0;
         k += 4)
        s.F[k] += s.mass[k] * control.gravity_sign * gravity_acceleration;
    if (s.loads->varies())
        s.loads->keep_constant(s.F);
    else
        s.loads.reset();
    return true;
}

// Nodes on solid elements that a velocity record selects.
std::vector<std::int32_t> nodes_of(const VelocityRecord& record, const Job& job,
                                   const NodeElements& node_elements) {
    const Mesh& mesh = job.mesh();
    std::vector<std::int32_t> nodes;
    if (record.kind == VelocitySelection::part) {
        const std::size_t per_element = mesh.node_per_element();
        std::vector<char> on(mesh.node_num(), 0);
        for (std::size_t k = 0; k < mesh.connectivity.size(); ++k)
            if (is_of_part(job.model.parts, mesh.p_ele_part_id[k / per_element], record.name))
                on[node_index(mesh.connectivity[k])] = 1;
        for (std::size_t n = 0; n < on.size(); ++n)
            if (on[n]) nodes.push_back(static_cast<std::int32_t>(n));
        return nodes;
    }
    BoundaryCondition selection;
    selection.kind = static_cast<Selection>(record.kind);
    selection.axis = record.axis;
    selection.box = record.box;
    for (std::int32_t n : select_nodes(selection, mesh))
        if (node_elements.start[n] != node_elements.start[static_cast<std::size_t>(n) + 1])
            nodes.push_back(n);
    return nodes;
}

// The members among the nodes of a record, body by body.
void add_members(std::span<const std::int32_t> nodes, const VelocityRecord& record, const ExplicitState& s,
                 std::vector<DrivenMembers>& out) {
    if (!s.bodies) return;
    const std::size_t first = out.size();
    for (std::int32_t n : nodes) {
        const std::int32_t body = s.bodies->system().body_of_node[n];
        if (body < 0) continue;
        auto at = std::find_if(out.begin() + std::ptrdiff_t(first), out.end(),
                               [&](const DrivenMembers& d) { return d.body == body; });
        if (at == out.end())
            at = out.insert(out.end(),
                            DrivenMembers{body, {}, record.axis, record.velocity.start, record.velocity});
        at->nodes.push_back(n);
    }
}

bool set_driven(Job& job, ExplicitState& s) {
    for (const VelocityRecord& record : job.model.explicit_tables.velocity_inputs) {
        DrivenDofs driven{record.velocity, {}};
        const auto nodes = nodes_of(record, job, s.freedoms.node_elements);
        const std::size_t bodies_before = s.driven_members.size();
        add_members(nodes, record, s, s.driven_members);
        for (std::size_t k = bodies_before; k < s.driven_members.size(); ++k)
            if (const RigidBody& body = s.bodies->system().bodies[s.driven_members[k].body]; body.count() < 6)
                remark(job, "velocity input " + record.name + ": supports hold rigid element " +
                                job.model.rigid_elements[body.record].name +
                                ": it moves only as they let it");
        for (std::int32_t n : nodes) {
            if (s.bodies && s.bodies->is_member(n)) continue;
            if (s.supports && (s.supports->is_turned(n) || s.supports->is_tied(n))) {
                const double* x = job.mesh().node(n);
                return job.fail(
                    RunStatus::bad_input,
                    formatted("velocity input %s: its node at (%.6g, %.6g, %.6g) is %s", record.name.c_str(),
                              x[0], x[1], x[2],
                              s.supports->is_tied(n)
                                  ? "tied to others: drive those"
                                  : "held along a normal that is no axis: move the support, by ux="));
            }
            driven.places.push_back(4 * n + record.axis);
            if (s.supports) s.supports->release(driven.places.back());
        }
        if (driven.places.empty()) {
            if (s.driven_members.size() > bodies_before) continue;
            remark(job, "velocity input " + record.name + ": selects no node");
            continue;
        }
        // a later record takes over what an earlier one drove
        for (DrivenDofs& earlier : s.driven)
            std::erase_if(earlier.places, [&](std::int32_t at) {
                return std::binary_search(driven.places.begin(), driven.places.end(), at);
            });
        for (std::int32_t at : driven.places) {
            s.supported[at] = 0;
            s.damping[at] = 0;
        }
        s.driven.push_back(std::move(driven));
    }
    return true;
}

void set_update_factors(const SetUp& set_up, ExplicitState& s) {
    std::vector<char> ruled(s.supported.begin(), s.supported.end());
    for (const DrivenDofs& driven : s.driven)
        for (std::int32_t at : driven.places) ruled[at] = 1;
    if (s.supports) {
        for (const std::int32_t n : s.supports->special_nodes())
            for (std::size_t c = 0; c < 3; ++c) {
                ruled[4 * n + c] = 1;
                s.supported[4 * n + c] = 0;  // what holds it is not along x, y or z
                s.damping[4 * n + c] = 0;
            }
        for (const std::size_t place : s.supports->moved_places()) s.supported[place] = 0;
    }
    for (std::size_t k = 0; k < s.mass.size(); ++k) {
        if (ruled[k]) continue;
        const double per_step = s.mass[k] / s.d_time, half = 0.5 * s.damping[k];
        s.a[k] = (per_step - half) / (per_step + half);
        s.b[k] = 1 / (per_step + half);
    }
    if (set_up.own_mass.empty()) return;
    s.contact_mass = s.mass;
    s.contact_b = s.b;
    for (const std::int32_t n : s.supports->special_nodes())
        for (std::size_t c = 0; c < 3; ++c) {
            const double m = s.contact_mass[4 * n + c] = set_up.own_mass[3 * n + c];
            s.contact_b[4 * n + c] = s.d_time / m;
        }
}

void set_initial_velocities(Job& job, ExplicitState& s) {
    const auto& records = job.model.explicit_tables.initial_velocities;
    if (records.empty()) return;
    std::vector<DrivenMembers> members;
    for (std::size_t k = 0; k < records.size(); ++k) {
        const VelocityRecord& record = records[k];
        const auto nodes = nodes_of(record, job, s.freedoms.node_elements);
        job.progress.print(" INITIAL_VELOCITY[%zu]: %d, %d\n", k, static_cast<std::int32_t>(record.kind),
                           record.axis);
        job.progress.print("  c_ = %zu\n", nodes.size());
        if (nodes.empty()) remark(job, "initial velocity " + record.name + ": selects no node");
        std::int32_t set = 0;
        add_members(nodes, record, s, members);
        for (std::int32_t n : nodes) {
            const std::size_t at = 4 * n + static_cast<std::size_t>(record.axis);
            const bool special = s.supports && (s.supports->is_turned(n) || s.supports->is_tied(n));
            if (s.b[at] == 0 && !special) continue;
            s.v[at] = record.velocity.start;
            ++set;
        }
        job.progress.print("%zu/%zu", k + 1, records.size());
        job.progress.print("  %d", set);
        job.progress.print("\n");
    }
    if (s.supports) {
        s.supports->project(s.v.data());
        s.supports->follow(s.v.data());
    }
    if (s.bodies) s.bodies->start(members, s.d_time);
    job.progress.print("INITIAL_VELOCITY set\n");
}

// The step in force: given, or 0.9 of the stable one.
bool choose_step(Job& job, const SetUp& set_up, std::span<const char> rigid, ExplicitState& s) {
    s.bound.emplace(job.mesh(), job.model.parts, job.model.materials, set_up.mass_factor, s.threads, rigid);
    const StableStep stable = s.bound->undeformed();
    s.stable_step = stable.step;
    if (!(stable.step > 0) || !std::isfinite(stable.step))
        return job.fail(RunStatus::failed, "no stable time step can be found for this mesh");
    const auto c = element_centre(job.mesh(), stable.element);
    job.progress.print("Stable time step=%.3e[s], element %d at (%.6g, %.6g, %.6g)\n", stable.step,
                       stable.element + 1, c[0], c[1], c[2]);
    if (const double rate = s.bodies ? s.bodies->spring_rate() : 0; rate > 0) {
        s.stable_step = 2 / std::sqrt(4 / (stable.step * stable.step) + rate);
        job.progress.print("Stable time step=%.3e[s] with the springs between rigid elements\n",
                           s.stable_step);
    }
    const bool gathered = !set_up.own_mass.empty();
    const double spread = s.freedoms.constraints.map.spread();
    if (const double rate = s.springs.rate(gathered ? set_up.own_mass : set_up.lumped);
        rate > 0 || spread > 1) {
        s.stable_step = 2 / std::sqrt(4 / (s.stable_step * s.stable_step) + rate) / spread;
        job.progress.print("Stable time step=%.3e[s] with the springs of supports and the ties\n",
                           s.stable_step);
    }
    s.d_time = job.model.control.d_time > 0 ? job.model.control.d_time : 0.9 * s.stable_step;
    if (!(job.model.control.d_time > 0))
        remark(job, formatted("d_time is not given: %.6e s is taken, 0.9 of the stable step", s.d_time));
    return true;
}

// A fixed body has a support or a driven degree of freedom; bodies are connected by common nodes.
bool some_body_is_free(const Mesh& mesh, const ExplicitState& s) {
    std::vector<std::array<std::int32_t, 2>> ties;
    const ConstraintMap& map = s.freedoms.constraints.map;
    for (std::size_t k = 0; k < map.special_nodes().size(); ++k)
        for (const auto& [master, weight] : map.weights(k)) ties.push_back({map.special_nodes()[k], master});
    const std::vector<std::int32_t> body = connected_nodes(mesh, ties);
    std::vector<char> held(body.size(), 0);
    for (std::size_t n = 0; n < body.size(); ++n)
        if (map.is_tied(static_cast<std::int32_t>(n)))
            continue;
        else if (s.b[4 * n] == 0 || s.b[4 * n + 1] == 0 || s.b[4 * n + 2] == 0)
            held[body[n]] = 1;
    return std::any_of(mesh.connectivity.begin(), mesh.connectivity.end(),
                       [&](std::int32_t n) { return !held[body[node_index(n)]]; });
}

bool count_steps(Job& job, ExplicitState& s) {
    s.output_frequency = job.model.control.output_frequency;
    if (s.output_frequency < 1) {
        s.output_frequency = 1;
        remark(job, "output_frequency is not given or below 1: every step is stored");
    }
    const double steps = job.model.control.end_time * end_tolerance / s.d_time;
    const double frames = std::floor(job.model.control.end_time * end_tolerance /
                                     (s.d_time * static_cast<double>(s.output_frequency))) +
                          1.0;
    if (!(steps < 9e18))
        return job.fail(RunStatus::bad_input, formatted("end_time / d_time = %.3e: too many steps", steps));
    s.time_num = 1 + static_cast<std::int64_t>(steps);
    s.out_time_num = static_cast<std::int64_t>(frames);
    job.progress.print("time_num = %ld\n", s.time_num);
    job.progress.print("out_time_num = %ld\n", s.out_time_num);
    const double dofs = job.mesh().dof_num();
    const double bytes = frames * dofs * (1 + stress_groups) * 8 + static_cast<double>(s.blocks->bytes()) +
                         dofs / 3 * 4 * 13 * 8;
    job.progress.print("Memory Size = %8.3f[Mbyte]\n", bytes / 1000000);
    const double most = machine_megabytes();
    if (frames > std::numeric_limits<std::int32_t>::max() || 1e-6 * bytes > 0.9 * most)
        return job.fail(RunStatus::bad_input,
                        formatted("%ld frames need %.0f MB, this machine has %.0f MB: raise output_frequency",
                                  s.out_time_num, bytes / 1e6, most));
    return true;
}

// Tables may be an earlier model's, whose sets this one does not have.
bool has_sets(Job& job) {
    const auto has = [&](const char* kind, const auto& records) {
        for (const auto& record : records)
            if (!record.set_name.empty() && !find_set(job.model.mesh, record.set_name))
                return job.fail(RunStatus::bad_input, std::string(kind) + " " + record.name +
                                                          ": this model has no set " + record.set_name);
        return true;
    };
    const ExplicitTables& tables = job.model.explicit_tables;
    return has("wall", tables.walls) && has("contact", tables.contacts);
}

void set_contacts(Job& job, ExplicitState& s) {
    const ExplicitTables& tables = job.model.explicit_tables;
    if (tables.walls.empty() && !s.contacts) return;
    const int sharing = static_cast<int>(tables.walls.size()) + (s.contacts ? 2 : 0);
    if (!tables.walls.empty()) {
        if (s.contact_nodes.empty())
            s.contact_nodes = surface_nodes(surface_triangles(job.mesh()), job.mesh().node_num());
        s.walls.emplace(tables.walls, job.model.parameters, job.mesh(), s.contact_nodes, s.d_time,
                        s.stable_step, sharing);
        const double ratio = s.walls->stiff_spring(s.contact_mass.empty() ? s.mass : s.contact_mass);
        double zeta = 0;
        for (const RigidWall& wall : tables.walls) zeta = std::max(zeta, wall.damping);
        if (ratio > 0) {
            const double w2 = 4 / (s.stable_step * s.stable_step) + 1 / ratio;
            s.stable_step = 2 / std::sqrt(w2) * (std::sqrt(1 + zeta * zeta) - zeta);
            job.progress.print("Stable time step=%.3e[s] with the walls' penalty\n", s.stable_step);
        }
    }
    if (s.contacts) s.contacts->tune(s.d_time, s.stable_step, 1 + static_cast<int>(tables.walls.size()));
    if (s.d_time > 0.9 * s.bound->undeformed().step)
        remark(job, "d_time is above 0.9 of the stable step: walls and contact are soft, to stay stable");
}

void warn_of_step(Job& job, const ExplicitState& s) {
    if (s.d_time > s.stable_step)
        remark(job, formatted("d_time = %.3e s is above the stable step of %.3e s: the run may diverge",
                              s.d_time, s.stable_step));
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

bool yields(const Job& job) {
    return job.model.control.plastic && std::ranges::any_of(job.model.materials, has_yield_stress);
}

void report_closed(Job& job, const ExplicitState& s) {
    const auto say_where = [&](std::int64_t touching, const char* what) {
        if (touching > 0)
            remark(job, formatted("%ld nodes lie behind %s at the start and are pushed out", touching, what));
    };
    if (s.walls) say_where(s.walls->touching(), "a wall");
    if (s.contacts) say_where(s.contacts->touching(), "the surface of a contact pair");
}

// Bodies whose supports hold them otherwise than whole or in a plane.
bool check_bodies(Job& job, const RigidSystem& rigid) {
    for (const RigidBody& body : rigid.bodies) {
        bool pure = body.plane_motion();
        for (const Vec6& m : body.motions) {
            const double moves = norm({m[0], m[1], m[2]}), turns = body.size * norm({m[3], m[4], m[5]});
            pure = pure && (moves < 1e-9 * turns || turns < 1e-9 * moves);
        }
        if (!body.held.empty() && !pure)
            return job.fail(
                RunStatus::bad_input,
                "rigid element " + job.model.rigid_elements[body.record].name +
                    ": supports hold its members in several directions, or in one at fewer than three "
                    "places off a line: the explicit analysis wants them held whole or in a plane");
    }
    return true;
}

// Supports with options and ties.
void set_supports(const Job& job, const SetUp& set_up, ExplicitState& s) {
    const bool options = std::ranges::any_of(job.model.boundary_conditions,
                                             [](const BoundaryCondition& b) { return b.options.given; });
    if (options || !job.model.ties.empty())
        s.supports.emplace(job, s.freedoms.constraints, set_up.stiffness, set_up.lumped,
                           job.model.control.c_alfa);
}

// Where the supports stand at the start.
bool start_supports(Job& job, ExplicitState& s) {
    if (!s.supports) return true;
    for (const std::string& name : s.supports->start(s.d_time, node_arrays(s)))
        remark(job, "support " + name + ": its displacement at time 0 is not 0: the run starts with it");
    if (!s.supports->trouble().empty()) return job.fail(RunStatus::bad_input, s.supports->trouble());
    const auto rubs = [](const RigidWall& wall) { return wall.friction > 0; };
    if (s.walls && s.supports->has_special_nodes() &&
        std::ranges::any_of(job.model.explicit_tables.walls, rubs))
        remark(job, "walls do not rub at tied nodes and at those held along a normal that is no axis");
    return true;
}

// The masses, the damping and the loads of the nodes, and the rigid bodies.
bool set_inertia(Job& job, SetUp& set_up, ExplicitState& s) {
    if (!find_diagonals(job, s.freedoms, set_up)) return false;
    lump_mass(job, set_up);
    if (!gather_ties(job, s, set_up)) return false;
    size_state(job.mesh(), set_up, s);
    find_damping(job, set_up, s);
    set_supports(job, set_up, s);
    if (!set_loads(job, set_up, s)) return false;
    set_bodies(job, set_up, s);
    return true;
}

// What moves the nodes otherwise than by their equations.
bool set_motions(Job& job, const SetUp& set_up, ExplicitState& s) {
    if (!set_driven(job, s)) return false;
    set_update_factors(set_up, s);
    set_initial_velocities(job, s);
    set_contacts(job, s);
    if (!start_supports(job, s)) return false;
    warn_of_step(job, s);
    if (s.damped && some_body_is_free(job.mesh(), s))
        remark(job,
               "C_alfa damps the rigid motion of a body without supports too, and more so on finer meshes");
    return true;
}

}  // namespace

bool set_up_explicit(Job& job, ExplicitState& s) {
    s.start = std::chrono::steady_clock::now();
    SetUp set_up;
    if (!check_input(job) || !has_sets(job) || !make_run_mesh(job, Renumbering::along_longest, s.freedoms) ||
        !check_bodies(job, s.freedoms.rigid))
        return false;
    const Mesh& mesh = job.mesh();
    s.threads = job.threads();
    s.team = mesh.node_num() < smallest_team ? 1 : s.threads;
    job.clock.begin("assemble");
    extract_surface(job, s);
    job.progress.print("diag_num=%d\n", s.freedoms.diag_num);
    count_freedoms(job, s.freedoms);
    if (!set_inertia(job, set_up, s)) return false;
    const std::vector<char> rigid = s.freedoms.rigid.elements_inside(mesh);
    job.clock.begin("step size");
    // a surface that is touched wants the step of its own size: the springs of contact are as stiff as the
    // step lets them
    const bool touched = s.contacts || !job.model.explicit_tables.walls.empty();
    if (!choose_step(job, set_up, touched ? std::span<const char>() : rigid, s)) return false;
    set_up.diagonals = {};
    const bool once_yielded = job.options.mean_dilatation && !job.options.hexahedra;
    s.blocks.emplace(mesh, job.model.parts, job.model.materials,
                     BlockOptions{yields(job), once_yielded, 8, rigid,
                                  once_yielded ? HexahedronForm::full : job.hexahedra(), s.heat.has_value()});
    if (!count_steps(job, s)) return false;
    if (!set_motions(job, set_up, s)) return false;
    set_up = {};
    job.clock.end();
    begin_history(job, s);
    const bool found = find_forces(s);
    if (!s.trouble.empty()) return job.fail(RunStatus::bad_input, "at the start: " + s.trouble);
    if (!found)
        return job.fail(RunStatus::failed, "the forces of the start cannot be found: an element is inverted");
    report_closed(job, s);
    store_frame(job, s);
    if (!s.trouble.empty()) return job.fail(RunStatus::bad_input, "step 1: " + s.trouble);
    return job.goes_on();
}

}  // namespace kestralum

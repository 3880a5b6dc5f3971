#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "analysis/explicit/explicit_state.h"
#include "conditions/loads.h"
#include "model/console.h"
#include "model/free_faces.h"
#include "model/topology.h"

namespace kestralum {

namespace {

constexpr double gravity_acceleration = 9.80665;  // m/s², standard (ISO 80000-3)
constexpr std::int32_t smallest_team = 4000;      // nodes
constexpr double end_tolerance =
    1.0000001;  // keeps the last step of an end_time that is a multiple of d_time

void remark(RunReport& report, std::string line) {
    console::notice("%s", line.c_str());
    report.remarks.notices.push_back(std::move(line));
}

bool refuse(RunReport& report, std::string line) {
    report.fail(RunStatus::bad_input, std::move(line));
    return false;
}

// Materials and settings that explicit stepping cannot do without.
bool check_input(const ModelStore& store, RunReport& report) {
    if (!check_analysable(store, report)) return false;
    for (std::int32_t p : store.mesh.p_ele_part_id) {
        const Part& part = store.parts[p];
        const Material& m = store.materials[part.material_id];
        if (!(m.density > 0 && m.young > 0 && m.poisson > -1 && m.poisson < 0.5 && std::isfinite(m.density) &&
              std::isfinite(m.young)))
            return refuse(report, console::format("material %s: the explicit analysis wants a density and E "
                                                  "above 0 and Poisson's ratio between -1 and 0.5",
                                                  m.name.c_str()));
    }
    const AnalysisControl& c = store.control;
    if (!(c.d_time >= 0) || !std::isfinite(c.d_time))
        return refuse(report, console::format("d_time = %g: the time step must not be negative", c.d_time));
    if (!(c.end_time >= 0) || !std::isfinite(c.end_time))
        return refuse(report,
                      console::format("end_time = %g: the end time must not be negative", c.end_time));
    if (!(c.c_alfa >= 0) || !std::isfinite(c.c_alfa))
        return refuse(report, console::format("C_alfa = %g: the damping must not be negative", c.c_alfa));
    return true;
}

// The surface for contact, when it is on; what keeps a pair from acting is said.
void extract_surface(const ModelStore& store, ExplicitState& s, RunReport& report) {
    const auto& pairs = store.explicit_tables.contacts;
    if (!store.control.element_contact) {
        if (!pairs.empty()) remark(report, "Element_contact is off: the pairs of ELEMENT_CONTACT do not act");
        return;
    }
    std::vector<SurfaceTriangle> surface = surface_triangles(store.mesh);
    s.contact_nodes = surface_nodes(surface, store.mesh.node_num());
    console::print("Nnode_s=%zu\n", s.contact_nodes.size());
    console::print("Ntri_s=%zu\n", surface.size());
    s.contacts.emplace(pairs, store.parts, store.mesh, std::move(surface));
    for (std::size_t k = 0; k < pairs.size(); ++k) {
        if (!s.contacts->can_act(k))
            remark(report, "contact " + pairs[k].name + ": a part of it has no surface in this model");
        if (const std::int32_t common = s.contacts->common_nodes(k); common > 0)
            remark(report, console::format("contact %s: parts %s and %s have %d nodes in common, merged "
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
    LinearSystem system;
    std::vector<double> lumped;  // per degree of freedom, kg
    double mass_factor = 1;      // lumped mass over the consistent diagonal
};

bool assemble(const ModelStore& store, const ExplicitState& state, SetUp& set_up, RunReport& report) {
    const Mesh& mesh = store.mesh;
    LinearSystem& system = set_up.system;
    system.elasticity = build_elasticity(store.materials);
    console::print("Set [K],[M]\n");
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, system.node_elements);
    const std::int64_t entries = count_overlap(neighbours, system.km);
    build_index(neighbours, system.km);
    find_diagonals(system.km);
    console::print("[K],[M] element num=%lld\n", static_cast<long long>(entries));
    const std::int32_t bad = assemble_km(mesh, neighbours, element_matrices(store, system.elasticity, {}),
                                         state.threads, system.km);
    if (bad < 0) return true;
    report.fail(RunStatus::failed,
                place_of_element(store, bad) + ": the Jacobian is not positive (flat or inverted element)");
    return false;
}

// The consistent mass' diagonal, scaled to the consistent total.
void lump_mass(SetUp& set_up, RunReport& report) {
    const SparseKM& km = set_up.system.km;
    const double total = sum_of(km.M_value) / 3.0;
    console::print("Mass total=%e[kg]\n", total);
    set_up.lumped.resize(km.rows());
    for (std::size_t d = 0; d < set_up.lumped.size(); ++d)
        set_up.lumped[d] = km.diag_pos[d] < 0 ? 0.0 : km.M_value[km.diag_pos[d]];
    const double diagonal = sum_of(set_up.lumped) / 3.0;
    console::print("Diag Mass total=%e[kg]\n", diagonal);
    for (double& m : set_up.lumped) m = m / diagonal * total;
    console::print("Modified Diag Mass total=%e[kg]\n", sum_of(set_up.lumped) / 3.0);
    set_up.mass_factor = total / diagonal;
    report.total_mass = total;
}

// Damping of the free degrees of freedom, c = 2 √(k m) C_alfa, and the lines that check the masses.
void find_damping(const ModelStore& store, SetUp& set_up, ExplicitState& state) {
    const SparseKM& km = set_up.system.km;
    const auto& free = set_up.system.numbering.free_dofs;
    std::array<double, 3> sum{};
    for (std::size_t i = 0; i < free.size(); ++i) {
        const std::size_t dof = free[i];
        const double k = km.K_value[km.diag_pos[i]], m = set_up.lumped[dof];
        if (console::lines_enabled()) console::print("diagM[%zu]:%.3e\r", i, m);
        state.damping[4 * (dof / 3) + dof % 3] = 2 * std::sqrt(k * m) * store.control.c_alfa;
        sum[i % 3] += m;
    }
    state.damped = store.control.c_alfa > 0;
    console::print("\n");
    console::print("Mass check\n");
    console::print("  mx = %.3e, my = %.3e, mz = %.3e\n", sum[0], sum[1], sum[2]);
    console::print("vk=%e\n", sum_of(km.K_value));
    console::print("K,M sparse complete\n");
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
        s.supported[at] = set_up.system.numbering.dof_map[d] < 0;
    }
}

void set_loads(const ModelStore& store, const SetUp& set_up, ExplicitState& s, RunReport& report) {
    console::print("Force Vector\n");
    const LoadVector load =
        build_loads(store.forces, store.mesh, set_up.system.numbering, diagonal_of(set_up.system.km));
    console::print("Force Vector Complete\n");
    const auto& free = set_up.system.numbering.free_dofs;
    for (std::size_t i = 0; i < free.size(); ++i) {
        const std::size_t dof = free[i];
        s.F[4 * (dof / 3) + dof % 3] = load.F[i];
        report.applied[dof % 3] += load.F[i];
    }
    report_unused_records(store, set_up.system.numbering, load, report);
    if (store.control.gravity_axis < 0) return;
    const std::size_t axis = store.control.gravity_axis;
    for (std::size_t n = 0; n < s.F.size() / 4; ++n)
        s.F[4 * n + axis] += s.mass[4 * n + axis] * store.control.gravity_sign * gravity_acceleration;
}

// Nodes on solid elements that a velocity record selects.
std::vector<std::int32_t> nodes_of(const VelocityRecord& record, const ModelStore& store,
                                   const NodeElements& node_elements) {
    const Mesh& mesh = store.mesh;
    std::vector<std::int32_t> nodes;
    if (record.kind == VelocitySelection::part) {
        const std::size_t per_element = mesh.node_per_element();
        std::vector<char> on(mesh.node_num(), 0);
        for (std::size_t k = 0; k < mesh.connectivity.size(); ++k)
            if (store.parts[mesh.p_ele_part_id[k / per_element]].name == record.name)
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
        auto at = std::find_if(out.begin() + static_cast<std::ptrdiff_t>(first), out.end(),
                               [&](const DrivenMembers& d) { return d.body == body; });
        if (at == out.end())
            at = out.insert(out.end(),
                            DrivenMembers{body, {}, record.axis, record.velocity.start, record.velocity});
        at->nodes.push_back(n);
    }
}

void set_driven(const ModelStore& store, const NodeElements& node_elements, ExplicitState& s,
                RunReport& report) {
    for (const VelocityRecord& record : store.explicit_tables.velocity_inputs) {
        DrivenDofs driven{record.velocity, {}};
        const auto nodes = nodes_of(record, store, node_elements);
        const std::size_t bodies_before = s.driven_members.size();
        add_members(nodes, record, s, s.driven_members);
        for (std::size_t k = bodies_before; k < s.driven_members.size(); ++k)
            if (const RigidBody& body = s.bodies->system().bodies[s.driven_members[k].body]; body.count() < 6)
                remark(report, "velocity input " + record.name + ": supports hold rigid element " +
                                   store.rigid_elements[body.record].name + ": it moves only as they let it");
        for (std::int32_t n : nodes)
            if (!s.bodies || !s.bodies->is_member(n)) driven.places.push_back(4 * n + record.axis);
        if (driven.places.empty()) {
            if (s.driven_members.size() > bodies_before) continue;
            remark(report, "velocity input " + record.name + ": selects no node");
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
}

void set_update_factors(ExplicitState& s) {
    std::vector<char> ruled(s.supported.begin(), s.supported.end());
    for (const DrivenDofs& driven : s.driven)
        for (std::int32_t at : driven.places) ruled[at] = 1;
    for (std::size_t k = 0; k < s.mass.size(); ++k) {
        if (ruled[k]) continue;
        const double per_step = s.mass[k] / s.d_time, half = 0.5 * s.damping[k];
        s.a[k] = (per_step - half) / (per_step + half);
        s.b[k] = 1 / (per_step + half);
    }
}

void set_initial_velocities(const ModelStore& store, const NodeElements& node_elements, ExplicitState& s,
                            RunReport& report) {
    const auto& records = store.explicit_tables.initial_velocities;
    if (records.empty()) return;
    std::vector<DrivenMembers> members;
    for (std::size_t k = 0; k < records.size(); ++k) {
        const VelocityRecord& record = records[k];
        const auto nodes = nodes_of(record, store, node_elements);
        console::print(" INITIAL_VELOCITY[%zu]: %d, %d\n", k, static_cast<std::int32_t>(record.kind),
                       record.axis);
        console::print("  c_ = %zu\n", nodes.size());
        if (nodes.empty()) remark(report, "initial velocity " + record.name + ": selects no node");
        std::int32_t set = 0;
        add_members(nodes, record, s, members);
        for (std::int32_t n : nodes) {
            const std::size_t at = 4 * n + static_cast<std::size_t>(record.axis);
            if (s.b[at] == 0) continue;
            s.v[at] = record.velocity.start;
            ++set;
        }
        console::print("%zu/%zu", k + 1, records.size());
        console::print("  %d", set);
        console::print("\n");
    }
    if (s.bodies) s.bodies->start(members, s.d_time);
    console::print("INITIAL_VELOCITY set\n");
}

// The step in force: given, or 0.9 of the stable one.
bool choose_step(const ModelStore& store, const SetUp& set_up, std::span<const char> rigid, ExplicitState& s,
                 RunReport& report) {
    s.bound.emplace(store.mesh, store.parts, store.materials, set_up.mass_factor, s.threads, rigid);
    const StableStep stable = s.bound->undeformed();
    s.stable_step = stable.step;
    if (!(stable.step > 0) || !std::isfinite(stable.step)) {
        report.fail(RunStatus::failed, "no stable time step can be found for this mesh");
        return false;
    }
    const auto c = element_centre(store.mesh, stable.element);
    console::print("Stable time step=%.3e[s], element %d at (%.6g, %.6g, %.6g)\n", stable.step,
                   stable.element + 1, c[0], c[1], c[2]);
    if (const double rate = s.bodies ? s.bodies->spring_rate() : 0; rate > 0) {
        s.stable_step = 2 / std::sqrt(4 / (stable.step * stable.step) + rate);
        console::print("Stable time step=%.3e[s] with the springs between rigid elements\n", s.stable_step);
    }
    s.d_time = store.control.d_time > 0 ? store.control.d_time : 0.9 * s.stable_step;
    if (!(store.control.d_time > 0))
        remark(report,
               console::format("d_time is not given: %.6e s is taken, 0.9 of the stable step", s.d_time));
    return true;
}

// A fixed body has a support or a driven degree of freedom; bodies hang together by common nodes.
bool some_body_is_free(const Mesh& mesh, const ExplicitState& s) {
    const std::vector<std::int32_t> body = connected_nodes(mesh);
    std::vector<char> held(body.size(), 0);
    for (std::size_t n = 0; n < body.size(); ++n)
        if (s.b[4 * n] == 0 || s.b[4 * n + 1] == 0 || s.b[4 * n + 2] == 0) held[body[n]] = 1;
    return std::any_of(mesh.connectivity.begin(), mesh.connectivity.end(),
                       [&](std::int32_t n) { return !held[body[node_index(n)]]; });
}

bool count_steps(ModelStore& store, ExplicitState& s, RunReport& report) {
    s.output_frequency = store.control.output_frequency;
    if (s.output_frequency < 1) {
        s.output_frequency = 1;
        remark(report, "output_frequency is not given or below 1: every step is stored");
    }
    const double steps = store.control.end_time * end_tolerance / s.d_time;
    const double frames = std::floor(store.control.end_time * end_tolerance /
                                     (s.d_time * static_cast<double>(s.output_frequency))) +
                          1.0;
    if (!(steps < 9e18))
        return refuse(report, console::format("end_time / d_time = %.3e: too many steps", steps));
    s.time_num = 1 + static_cast<std::int64_t>(steps);
    s.out_time_num = static_cast<std::int64_t>(frames);
    console::print("time_num = %lld\n", static_cast<long long>(s.time_num));
    console::print("out_time_num = %lld\n", static_cast<long long>(s.out_time_num));
    const double dofs = store.mesh.dof_num;
    const double bytes = frames * dofs * (1 + stress_groups) * 8 + static_cast<double>(s.blocks->bytes()) +
                         dofs / 3 * 4 * 13 * 8;
    console::print("Memory Size = %8.3f[Mbyte]\n", bytes / 1000000);
    const double physical =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
    if (frames > std::numeric_limits<std::int32_t>::max() || bytes > 0.9 * physical)
        return refuse(
            report,
            console::format("%lld frames need %.0f MB, this machine has %.0f MB: raise output_frequency",
                            static_cast<long long>(s.out_time_num), bytes / 1e6, physical / 1e6));
    return true;
}

void set_contacts(const ModelStore& store, ExplicitState& s, RunReport& report) {
    const ExplicitTables& tables = store.explicit_tables;
    if (tables.walls.empty() && !s.contacts) return;
    const int sharing = static_cast<int>(tables.walls.size()) + (s.contacts ? 2 : 0);
    if (!tables.walls.empty()) {
        if (s.contact_nodes.empty())
            s.contact_nodes = surface_nodes(surface_triangles(store.mesh), store.mesh.node_num());
        s.walls.emplace(tables.walls, store.parameters, s.contact_nodes, s.d_time, s.stable_step, sharing);
        const double ratio = s.walls->stiff_spring(s.mass);
        double zeta = 0;
        for (const RigidWall& wall : tables.walls) zeta = std::max(zeta, wall.damping);
        if (ratio > 0) {
            const double w2 = 4 / (s.stable_step * s.stable_step) + 1 / ratio;
            s.stable_step = 2 / std::sqrt(w2) * (std::sqrt(1 + zeta * zeta) - zeta);
            console::print("Stable time step=%.3e[s] with the walls' penalty\n", s.stable_step);
        }
    }
    if (s.contacts) s.contacts->tune(s.d_time, s.stable_step, 1 + static_cast<int>(tables.walls.size()));
    if (s.d_time > 0.9 * s.bound->undeformed().step)
        remark(report, "d_time is above 0.9 of the stable step: walls and contact are soft, to stay stable");
}

void warn_of_step(const ExplicitState& s, RunReport& report) {
    if (s.d_time > s.stable_step)
        remark(report,
               console::format("d_time = %.3e s is above the stable step of %.3e s: the run may diverge",
                               s.d_time, s.stable_step));
}

void report_plasticity(const ModelStore& store, RunReport& report) {
    if (!store.control.plastic) return;
    for (const Material& m : store.materials) {
        const double g = m.young / (2 * (1 + m.poisson));
        if (m.yield_stress > 0 && m.shear_modulus > 0 && std::abs(m.shear_modulus - g) > 1e-3 * g)
            remark(report,
                   console::format("material %s: G = %.6e differs from E/(2(1+nu)) = %.6e, which is used",
                                   m.name.c_str(), m.shear_modulus, g));
    }
}

// The rigid bodies with their masses.
void set_bodies(const ModelStore& store, SetUp& set_up, ExplicitState& s, RunReport& report) {
    const RigidSystem& system = set_up.system.rigid;
    if (system.empty()) return;
    const Mesh& mesh = store.mesh;
    s.bodies.emplace(system, mesh, set_up.lumped, store.rigid_forces, store.rigid_combines);
    s.acting.assign(4 * mesh.node_num(), 0.0);
    std::int32_t free = 0;
    for (std::int32_t dof : set_up.system.numbering.free_dofs) free += !s.bodies->is_member(dof / 3);
    s.bodies->print_masses(free);
    report.free_dofs = free + system.equations;
    for (const ExplicitBody& body : s.bodies->bodies())
        for (std::int32_t n : body.geometry.members) {
            const auto k = 4 * n;
            std::fill_n(s.damping.begin() + static_cast<std::ptrdiff_t>(k), 3, 0.0);
        }
    for (std::size_t b = 0; b < system.bodies.size(); ++b) {
        const Vec6 force =
            rigid_force_resultant(system, static_cast<std::int32_t>(b), {}, store.rigid_forces);
        for (std::size_t c = 0; c < 3; ++c) report.applied[c] += force[c];
    }
}

bool yields(const ModelStore& store) {
    return store.control.plastic && std::any_of(store.materials.begin(), store.materials.end(),
                                                [](const Material& m) { return m.yield_stress > 0; });
}

}  // namespace

bool set_up_explicit(ModelStore& store, const Settings& settings, const ExplicitOptions& options,
                     ExplicitState& s, RunReport& report) {
    s.start = std::chrono::steady_clock::now();
    if (!check_input(store, report)) return false;
    s.threads = settings.threads();
    s.team = store.mesh.node_num() < smallest_team ? 1 : s.threads;
    store.ana_type = AnalysisType::explicit_dynamics;
    report.clock.begin("order");
    renumber_along_longest(store);
    store.results.resize(1, store.mesh.dof_num);  // earlier results belong to the former numbers
    report.clock.begin("assemble");
    SetUp set_up;
    const Mesh& mesh = store.mesh;
    extract_surface(store, s, report);
    console::print("diag_num=%d\n", store.diag_num);
    count_freedoms(store, set_up.system.node_elements, set_up.system.numbering, report);
    if (!find_rigid_bodies(store, set_up.system.node_elements, set_up.system.numbering, set_up.system.rigid,
                           report))
        return false;
    if (!assemble(store, s, set_up, report)) return false;
    lump_mass(set_up, report);
    size_state(mesh, set_up, s);
    if (set_up.system.numbering.free_dofs.size() < static_cast<std::size_t>(mesh.dof_num))
        eliminate_fixed(set_up.system.numbering.dof_map, set_up.system.km);
    find_damping(store, set_up, s);
    set_loads(store, set_up, s, report);
    set_bodies(store, set_up, s, report);
    const std::vector<char> rigid = set_up.system.rigid.elements_inside(mesh);
    s.node_elements = std::move(set_up.system.node_elements);
    report.clock.begin("step size");
    // a surface that is touched wants the step of its own size: the springs of contact are as stiff as the
    // step lets them
    const bool touched = s.contacts || !store.explicit_tables.walls.empty();
    if (!choose_step(store, set_up, touched ? std::span<const char>() : rigid, s, report)) return false;
    set_up.system = {};
    s.blocks.emplace(mesh, store.parts, store.materials,
                     BlockOptions{yields(store), options.mean_dilatation, 8, rigid});
    if (!count_steps(store, s, report)) return false;
    set_driven(store, s.node_elements, s, report);
    set_update_factors(s);
    set_initial_velocities(store, s.node_elements, s, report);
    set_contacts(store, s, report);
    warn_of_step(s, report);
    report_plasticity(store, report);
    if (s.damped && some_body_is_free(mesh, s))
        remark(report,
               "C_alfa damps the rigid motion of a body without supports too, and more so on finer meshes");
    report.clock.end();
    store.results.resize(static_cast<std::int32_t>(s.out_time_num), mesh.dof_num);
    begin_history(store, options, s);
    if (!find_forces(s)) {
        report.fail(
            RunStatus::failed,
            "the forces of the start cannot be found: an element is inverted or an expression has no value");
        return false;
    }
    if (s.walls && s.walls->touching() > 0)
        remark(report, console::format("%lld nodes lie behind a wall at the start and are pushed out",
                                       static_cast<long long>(s.walls->touching())));
    if (s.contacts && s.contacts->touching() > 0)
        remark(report,
               console::format(
                   "%lld nodes lie behind the surface of a contact pair at the start and are pushed out",
                   static_cast<long long>(s.contacts->touching())));
    store_frame(store, s);
    return true;
}

}  // namespace kestralum

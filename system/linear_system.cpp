#include "system/linear_system.h"

#include <unistd.h>

#include <cmath>

#include "elements/element_type.h"
#include "model/console.h"
#include "results/result_file.h"
#include "solver/ordering.h"

namespace kestralum {

bool check_analysable(const ModelStore& store, RunReport& report) {
    auto refuse = [&](std::string text) {
        report.fail(RunStatus::bad_input, std::move(text));
        return false;
    };
    if (store.mesh.element_num() < 1) return refuse("the model has no solid elements: nothing to analyse");
    std::vector<char> used(store.parts.size(), 0);
    for (std::int32_t part : store.mesh.p_ele_part_id) used[part] = 1;
    for (std::size_t k = 0; k < store.parts.size(); ++k) {
        const Part& part = store.parts[k];
        if (!used[k]) continue;
        if (part.material_id < 0 || static_cast<std::size_t>(part.material_id) >= store.materials.size())
            return refuse(console::format("part %s: material '%s' is not in the material table",
                                          part.name.c_str(), part.material_name.c_str()));
    }
    for (const RigidForce& force : store.rigid_forces)
        if (!std::isfinite(force.value))
            return refuse("rigid force " + force.name + ": the value is not a finite number");
    for (const RigidCombine& combine : store.rigid_combines)
        for (double k : combine.stiffness)
            if (!(k >= 0) || !std::isfinite(k))
                return refuse(
                    console::format("rigid combine %s: stiffness %g: not a finite number of at least 0",
                                    combine.name.c_str(), k));
    for (const AppliedForce& force : store.forces)
        if (!std::isfinite(force.value))
            return refuse("force " + force.name + ": the value is not a finite number");
    RunReport rigid_report;  // its notices come again when the supports are known
    RigidSystem rigid;
    if (!find_rigid_bodies(store, elements_of_nodes(store.mesh), {}, rigid, rigid_report))
        return refuse(rigid_report.remarks.errors.back());
    return true;
}

std::string place_of_element(const ModelStore& store, std::int32_t e) {
    const auto c = element_centre(store.mesh, e);
    const Part& part = store.parts[store.mesh.p_ele_part_id[e]];
    return console::format("element %d of part %s at (%.6g, %.6g, %.6g)", e + 1, part.name.c_str(), c[0],
                           c[1], c[2]);
}

ElementMatrices element_matrices(const ModelStore& store, const Elasticity& elasticity,
                                 const RigidSystem& rigid) {
    return [&](std::int32_t e, double* ke, double* me) {
        const Mesh& mesh = store.mesh;
        const ElementType& type = element_type(mesh.element_type);
        ElementPoints points;
        if (!evaluate_points(type, mesh, e, points)) return false;
        const Part& part = store.parts[mesh.p_ele_part_id[e]];
        const std::int32_t* nodes = mesh.connectivity.data() + static_cast<std::ptrdiff_t>(e) * type.nodes;
        if (rigid.common_body(nodes, type.nodes) >= 0)
            std::fill(ke, ke + 9 * type.nodes * type.nodes, 0.0);  // it cannot be strained
        else
            element_stiffness(type, points, moduli(elasticity, part.material_id), ke);
        type.mass(points.x.data(), me);
        const double density = store.materials[part.material_id].density;
        for (int k = 0; k < type.nodes * type.nodes; ++k) me[k] *= density;
        return true;
    };
}

std::vector<double> unstrained_diagonal(const ModelStore& store, const DofNumbering& numbering,
                                        const RigidSystem& rigid, const SparseKM& km) {
    std::vector<double> diagonal = diagonal_of(km);
    if (rigid.empty()) return diagonal;
    const Mesh& mesh = store.mesh;
    const ElementType& type = element_type(mesh.element_type);
    const int dofs = 3 * type.nodes;
    const console::Silence silence;  // its line has been printed
    const Elasticity elasticity = build_elasticity(store.materials);
    const RigidSystem none;
    const ElementMatrices matrices = element_matrices(store, elasticity, none);
    std::vector<double> ke(dofs * dofs), me(static_cast<std::size_t>(type.nodes * type.nodes));
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const std::int32_t* nodes = mesh.connectivity.data() + static_cast<std::ptrdiff_t>(e) * type.nodes;
        if (rigid.common_body(nodes, type.nodes) < 0 || !matrices(e, ke.data(), me.data())) continue;
        for (int d = 0; d < dofs; ++d) {
            const std::int32_t equation = numbering.dof_map[3 * (nodes[d / 3] - 1) + d % 3];
            if (equation >= 0) diagonal[equation] += ke[d * dofs + d];
        }
    }
    return diagonal;
}

void renumber_along_longest(ModelStore& store) {
    Mesh& mesh = store.mesh;
    console::print("element_type=%d\n", static_cast<std::int32_t>(mesh.element_type));
    console::print("element_num=%d,point_num=%d,fn=%d\n", mesh.element_num(), mesh.node_num(),
                   3 * mesh.node_num());
    reorder_nodes(mesh, "LMAX");
    store.diag_num = measure_band(mesh);
    mesh.dof_num = 3 * mesh.node_num();
    update_node_normals(mesh);
    resolve_force_points(mesh, store.forces);
}

bool renumber_model(ModelStore& store, const Settings& settings, RunReport& report) {
    Mesh& mesh = store.mesh;
    report.clock.begin("order");
    console::print("element_type=%d\n", static_cast<std::int32_t>(mesh.element_type));
    console::print("element_num=%d,point_num=%d,fn=%d\n", mesh.element_num(), mesh.node_num(),
                   3 * mesh.node_num());
    store.diag_num = order_nodes(mesh, settings.ordering_type);
    update_node_normals(mesh);
    resolve_force_points(mesh, store.forces);
    mesh.dof_num = 3 * mesh.node_num();
    store.results.resize(store.mode_count, mesh.dof_num);
    report.clock.begin("write");
    const bool written = write_results(store, Publish::hold, settings.threads());
    if (!written) report.fail(RunStatus::failed, "the result file cannot be written");
    report.clock.end();
    return written;
}

RunReport run_linear(ModelStore& store, const Settings& settings, AnalysisType type,
                     const std::function<bool(RunReport&)>& analyse) {
    RunReport report;
    if (!check_analysable(store, report)) return report;
    store.ana_type = type;
    if (!renumber_model(store, settings, report)) return report;
    if (!analyse(report)) {
        release_held_results(store);
        report.clock.end();
        return report;
    }
    report.clock.begin("write");
    report.written = write_results(store, Publish::now, settings.threads());
    if (!report.written) report.fail(RunStatus::failed, "the result file cannot be written");
    report.clock.end();
    return report;
}

namespace {

bool assemble(const ModelStore& store, const Settings& settings, LinearSystem& system, RunReport& report) {
    const Mesh& mesh = store.mesh;
    console::print("Make [K],[M]\n");
    std::int64_t most = 0;
    for (std::size_t n = 0; n + 1 < system.node_elements.start.size(); ++n)
        most = std::max(most, system.node_elements.start[n + 1] - system.node_elements.start[n]);
    console::print("  max_overlap_num=%lld\n", static_cast<long long>(most));
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, system.node_elements);
    const std::int64_t K_num2 = count_overlap(neighbours, system.km);
    console::print("[K],[M] element num=%lld\n", static_cast<long long>(K_num2));
    build_index(neighbours, system.km);
    find_diagonals(system.km);
    console::print("K,M sparse\n");
    console::print(" Calculate K,M sparse\n");
    const std::int32_t bad =
        assemble_km(mesh, neighbours, element_matrices(store, system.elasticity, system.rigid),
                    settings.threads(), system.km);
    if (bad >= 0) {
        report.fail(RunStatus::failed, place_of_element(store, bad) +
                                           ": the Jacobian is not positive (flat or inverted element)");
        return false;
    }
    console::print(" Calculate K,M sparse Complete\n");
    return true;
}

void print_sizes(const ModelStore& store, const SparseKM& km, RunReport& report) {
    console::print("fn=%d,diag_num=%d\n", store.fn_free, store.diag_num);
    console::print("fn_free=%d\n", 3 * store.mesh.node_num());
    double mass = 0;
    for (double m : km.M_value) mass += m;
    console::print("Mass total=%e[kg]\n", mass / 3.0);
    report.total_mass = mass / 3.0;
    console::print(" Ls_num=%lld\n", static_cast<long long>(profile_size(km)));
    console::print(" K_num2=%lld\n", static_cast<long long>(km.entries()));
    console::print(" [K]memory size=%10.1f[MB]\n", static_cast<double>(km.entries()) * 8 / 1000000);
}

}  // namespace

void count_freedoms(ModelStore& store, NodeElements& node_elements, DofNumbering& numbering,
                    RunReport& report) {
    store.fn_free = 3 * store.mesh.node_num();
    node_elements = elements_of_nodes(store.mesh);
    numbering =
        apply_boundary_conditions(store.boundary_conditions, store.mesh, node_elements, store.fn_free);
    const auto true_free = static_cast<std::int32_t>(numbering.free_dofs.size());
    if (const std::int32_t repeated = numbering.repeated_nodes(); repeated > 0) {
        const std::string line = console::format(
            "%d node%s selected by more than one support: fn_free=%d counts %s again, %d degrees of freedom "
            "are free",
            repeated, repeated == 1 ? " is" : "s are", store.fn_free, repeated == 1 ? "it" : "them",
            true_free);
        console::notice("%s", line.c_str());
        report.remarks.notices.push_back(line);
    }
    store.fn_free = true_free;
    report.free_dofs = true_free;
}

bool number_freedoms(ModelStore& store, NodeElements& node_elements, DofNumbering& numbering,
                     RunReport& report) {
    count_freedoms(store, node_elements, numbering, report);
    if (report.free_dofs == 0)
        report.fail(RunStatus::failed, "every degree of freedom is fixed: nothing to solve");
    return report.free_dofs > 0;
}

void report_unused_records(const ModelStore& store, const DofNumbering& numbering, const LoadVector& load,
                           RunReport& report) {
    for (std::size_t f = 0; f < store.forces.size(); ++f) {
        const AppliedForce& force = store.forces[f];
        if (load.reached[f] == 0)
            report.remarks.notices.push_back(
                "force " + force.name +
                (force.kind == ForceKind::node ? ": no node at its point" : ": no node in its box"));
        else if (load.on_fixed[f] == load.reached[f])
            report.remarks.notices.push_back("force " + force.name +
                                             ": acts on fixed degrees of freedom only and is lost");
    }
    for (std::size_t b = 0; b < store.boundary_conditions.size(); ++b)
        if (numbering.selected[b] == 0)
            report.remarks.notices.push_back("support " + store.boundary_conditions[b].name +
                                             ": selects no node");
}

void report_largest(const ModelStore& store, std::int32_t frame, RunReport& report) {
    const Mesh& mesh = store.mesh;
    const auto dofs = static_cast<std::size_t>(mesh.dof_num), k = static_cast<std::size_t>(frame);
    const double* u = store.results.mode_vec.data() + k * dofs;
    const double* mises = store.results.node_stress.data() + (stress_groups * k + 4) * dofs;
    report.largest_displacement = report.largest_mises = {};
    for (std::size_t n = 0; n < dofs / 3; ++n) {
        const std::array<double, 3> place{mesh.coordinates[3 * n], mesh.coordinates[3 * n + 1],
                                          mesh.coordinates[3 * n + 2]};
        const double size =
            std::sqrt(u[3 * n] * u[3 * n] + u[3 * n + 1] * u[3 * n + 1] + u[3 * n + 2] * u[3 * n + 2]);
        const auto node = static_cast<std::int32_t>(n + 1);
        if (report.largest_displacement.node == 0 || size > report.largest_displacement.value)
            report.largest_displacement = {node, size, place};
        if (report.largest_mises.node == 0 || mises[3 * n] > report.largest_mises.value)
            report.largest_mises = {node, mises[3 * n], place};
    }
}

bool build_linear_system(ModelStore& store, const Settings& settings, LinearSystem& system,
                         RunReport& report) {
    report.clock.begin("assemble");
    if (!number_freedoms(store, system.node_elements, system.numbering, report)) return false;
    if (!find_rigid_bodies(store, system.node_elements, system.numbering, system.rigid, report)) return false;
    system.elasticity = build_elasticity(store.materials);
    if (!assemble(store, settings, system, report)) return false;
    print_sizes(store, system.km, report);
    if (!store.boundary_conditions.empty() || system.numbering.hanging_nodes > 0)
        eliminate_fixed(system.numbering.dof_map, system.km);
    console::print("K,M sparse complete\n");
    return true;
}

bool find_rigid_bodies(const ModelStore& store, const NodeElements& node_elements,
                       const DofNumbering& numbering, RigidSystem& rigid, RunReport& report) {
    rigid = build_rigid_system(store.rigid_elements, store.mesh, node_elements, numbering.fixed_nodes);
    report.remarks.notices.insert(report.remarks.notices.end(), rigid.notices.begin(), rigid.notices.end());
    if (!rigid.error.empty()) {
        report.fail(RunStatus::bad_input, rigid.error);
        return false;
    }
    const auto bodies = static_cast<std::int32_t>(rigid.bodies.size());
    const auto known = [&](std::int32_t element) { return element >= 0 && element < bodies; };
    for (const RigidForce& force : store.rigid_forces) {
        if (!known(force.element)) {
            report.fail(RunStatus::bad_input,
                        "rigid force " + force.name + ": no rigid element '" + force.element_name + "'");
            return false;
        }
        const Vec6 f = rigid_force_resultant(rigid, force.element, {}, std::span(&force, 1));
        if (force.direction == RigidDirection::normal && force.value != 0 && f[0] == 0 && f[1] == 0 &&
            f[2] == 0) {
            report.fail(RunStatus::bad_input, "rigid force " + force.name + ": the members of '" +
                                                  force.element_name + "' have no mean outward normal");
            return false;
        }
    }
    for (const RigidForce& force : store.rigid_forces) {
        const RigidBody& body = rigid.bodies[force.element];
        const Vec6 f = rigid_force_resultant(rigid, force.element, {}, std::span(&force, 1));
        double reaches = 0;
        for (const Vec6& motion : body.motions) {
            double power = 0;
            for (std::size_t c = 0; c < 6; ++c) power += motion[c] * f[c];
            reaches = std::max(reaches, std::abs(power));
        }
        if (force.value != 0 && !(reaches > 1e-12 * std::abs(force.value)))
            report.remarks.notices.push_back("rigid force " + force.name + ": acts on held motions of " +
                                             force.element_name + " only and is lost");
    }
    for (const RigidCombine& combine : store.rigid_combines)
        for (std::size_t side = 0; side < 2; ++side)
            if (!known(combine.element[side]) || combine.element[0] == combine.element[1]) {
                report.fail(RunStatus::bad_input, "rigid combine " + combine.name +
                                                      ": it wants two different rigid elements, not '" +
                                                      combine.element_name[0] + "' and '" +
                                                      combine.element_name[1] + "'");
                return false;
            }
    return true;
}

void transform_rigid(ModelStore& store, LinearSystem& system, bool with_mass) {
    if (system.rigid.empty()) return;
    const auto free_before = static_cast<std::int32_t>(system.numbering.free_dofs.size());
    rigid_transform(system.rigid, {}, store.mesh, with_mass, system.km, system.numbering, system.border);
    const std::vector<RigidState> rest(system.rigid.bodies.size());
    add_combine_stiffness(store.rigid_combines, system.rigid, rest, system.border.K_rr);
    store.fn_free = system.equations();
    console::print("   fn=%d, fn_r=%d, fn_fix=%d, fn_free=%d\n", 3 * store.mesh.node_num(), system.border.nr,
                   3 * store.mesh.node_num() - free_before, system.equations());
    console::print("Rigid node\n");
    for (const RigidBody& body : system.rigid.bodies)
        for (std::int32_t n : body.members) console::print("  %d", n + 1);
    console::print("\n");
}

std::array<double, 3> sum_reactions(const DofNumbering& numbering, const RigidSystem& rigid,
                                    std::span<const double> internal, std::span<const Vec6> springs,
                                    std::span<const Vec6> loads) {
    std::array<double, 3> sum{};
    std::vector<char> counted(internal.size() / 3, 0);
    const auto count_node = [&](std::int32_t n) {
        const std::size_t k = n;
        for (std::size_t c = 0; c < 3 && !counted[k]; ++c) sum[c] += internal[3 * k + c];
        counted[k] = 1;
    };
    for (std::int32_t n : numbering.fixed_nodes) count_node(n);
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        const RigidBody& body = rigid.bodies[b];
        if (body.fixed.empty()) continue;
        for (std::int32_t n : body.members) count_node(n);
        for (std::size_t c = 0; c < 3; ++c) sum[c] += springs[b][c] - loads[b][c];
    }
    return sum;
}

std::vector<double> reduce_loads(const Mesh& mesh, std::span<const RigidForce> forces,
                                 const RigidSystem& rigid, std::span<const RigidState> states,
                                 const DofNumbering& numbering, std::span<const std::int32_t> free_dofs,
                                 std::span<const double> F) {
    std::vector<double> nodal(3 * mesh.node_num(), 0.0);
    for (std::size_t k = 0; k < F.size(); ++k) nodal[free_dofs[k]] = F[k];
    const std::size_t nf = numbering.free_dofs.size();
    std::vector<double> out(nf + static_cast<std::size_t>(rigid.equations), 0.0);
    for (std::size_t k = 0; k < nf; ++k) out[k] = nodal[numbering.free_dofs[k]];
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        const RigidBody& body = rigid.bodies[b];
        const RigidState state = states.empty() ? RigidState{} : states[b];
        double* at = out.data() + nf + static_cast<std::size_t>(body.first);
        project(body, state, resultant(body, state, mesh, nodal), 1, at);
        project(body, state, rigid_force_resultant(rigid, static_cast<std::int32_t>(b), state, forces), 1,
                at);
    }
    return out;
}

void expand_solution(const Mesh& mesh, const DofNumbering& numbering, const RigidSystem& rigid,
                     std::span<const double> q, std::span<double> u) {
    const std::size_t nf = numbering.free_dofs.size();
    for (std::size_t k = 0; k < nf; ++k) u[numbering.free_dofs[k]] = q[k];
    expand_members(rigid, mesh, q.subspan(nf), u);
}

std::unique_ptr<BorderedFactor> plan_bordered(const ModelStore& store, const Settings& settings,
                                              const LinearSystem& system, RunReport& report) {
    std::unique_ptr<SkylineFactor> free;
    if (system.km.rows() > 0) {
        free = plan_factor(system.km, store.diag_num, settings, report);
        if (!free) return nullptr;
    }
    return std::make_unique<BorderedFactor>(std::move(free), system.km.rows(), system.border.nr);
}

std::unique_ptr<SkylineFactor> plan_factor(const SparseKM& km, std::int32_t diag_num,
                                           const Settings& settings, RunReport& report) {
    report.clock.begin("factor");
    Profile profile = make_profile(km);
    console::print("temp_n:%d\n", most_divisions(profile.rows(), diag_num));
    Divisions divisions = plan_divisions(profile, settings.memory_size, settings.div_memory_size, diag_num);
    console::print("[L] division:%d\n", divisions.count());
    for (std::size_t b = 0; b + 1 < divisions.div_row.size(); ++b)
        console::print("division[%zu]:%lld, %lld, %d, %d\n", b,
                       static_cast<long long>(divisions.div_profile[b]),
                       static_cast<long long>(divisions.div_profile[b + 1]), divisions.div_row[b],
                       divisions.div_row[b + 1]);
    console::print("[L]memory size=%10.1f[MB]\n", profile.megabytes());
    report.factor_entries = profile.Ls_num;
    if (settings.free_hd_size < profile.megabytes()) {
        console::print("Warning:HD");
        report.fail(RunStatus::disk_budget,
                    console::format("the factor needs %.1f MB of disk, FREE_HD_SIZE allows %.1f MB",
                                    profile.megabytes(), settings.free_hd_size));
        return nullptr;
    }
    const double physical =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE)) / 1e6;
    if (divisions.count() == 1 && profile.megabytes() > physical) {
        report.fail(RunStatus::failed, console::format("the factor of %.1f MB does not fit this machine's "
                                                       "%.0f MB of memory: lower MEMORY_SIZE in the settings",
                                                       profile.megabytes(), physical));
        return nullptr;
    }
    return std::make_unique<SkylineFactor>(
        std::move(profile), std::move(divisions),
        FactorOptions{.threads = settings.threads(), .diag_num = diag_num});
}

bool run_factorization(const SparseKM& km, std::span<const double> values, SkylineFactor& factor,
                       RunReport& report) {
    console::print("LU K_sparse\n");
    if (factor.factor_ldl(km, values) != FactorStatus::ok) {
        report.fail(RunStatus::failed, "the factorization cannot go on: " + factor.error());
        return false;
    }
    console::print("LU K_sparse complete\n");
    report.negative_pivots = factor.negative_pivots();
    return true;
}

std::int32_t find_free_motion(const SparseKM& km, std::span<const double> values,
                              const SkylineFactor& factor) {
    constexpr double smallest_share = 1e-10;
    for (std::int32_t i = 0; i < km.rows(); ++i) {
        const double diagonal = values[km.diag_pos[i]];
        if (!(std::abs(factor.D()[i]) >= smallest_share * std::abs(diagonal))) return i;
    }
    return -1;
}

}  // namespace kestralum

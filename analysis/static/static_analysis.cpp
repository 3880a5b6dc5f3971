#include "analysis/static/static_analysis.h"

#include <cmath>

#include "conditions/loads.h"
#include "elements/stresses.h"
#include "model/console.h"
#include "system/linear_system.h"

namespace kestralum {

namespace {

constexpr std::int32_t static_columns = 6;  // result columns of a static analysis; the first is used

double norm(std::span<const double> v) {
    double sum = 0;
    for (double x : v) sum += x * x;
    return std::sqrt(sum);
}

std::array<double, 3> place_of_node(const Mesh& mesh, std::size_t n) {
    return {mesh.coordinates[3 * n], mesh.coordinates[3 * n + 1], mesh.coordinates[3 * n + 2]};
}

void report_loads(const ModelStore& store, const LinearSystem& system, const LoadVector& load,
                  RunReport& report) {
    report_unused_records(store, system.numbering, load, report);
    for (std::size_t k = 0; k < system.numbering.free_dofs.size(); ++k)
        report.applied[system.numbering.free_dofs[k] % 3] += load.F[k];
    for (std::size_t b = 0; b < system.rigid.bodies.size(); ++b) {
        const Vec6 force =
            rigid_force_resultant(system.rigid, static_cast<std::int32_t>(b), {}, store.rigid_forces);
        for (std::size_t c = 0; c < 3; ++c) report.applied[c] += force[c];
    }
}

// Says which node, or which rigid element, nothing holds.
void report_free_motion(const ModelStore& store, const LinearSystem& system, const BorderedFactor& factor,
                        RunReport& report) {
    const std::int32_t loose =
        factor.free() ? find_free_motion(system.km, system.km.K_value, *factor.free()) : -1;
    if (loose >= 0) {
        const std::int32_t dof = system.numbering.free_dofs[loose];
        const auto x = place_of_node(store.mesh, static_cast<std::size_t>(dof / 3));
        report.fail(
            RunStatus::failed,
            console::format("the body is free: the supports do not hold node %d at (%.6g, %.6g, %.6g) in %c",
                            dof / 3 + 1, x[0], x[1], x[2], "xyz"[dof % 3]));
    } else if (factor.has_free_motion(system.border.K_rr)) {
        std::string names;
        for (const RigidElement& element : store.rigid_elements)
            names += (names.empty() ? "" : ", ") + element.name;
        report.fail(RunStatus::failed,
                    "the body is free: a motion of the rigid elements (" + names + ") meets no resistance");
    }
}

bool solve(const ModelStore& store, const Settings& settings, const LinearSystem& system,
           std::vector<double>& u, RunReport& report) {
    const auto factor = plan_bordered(store, settings, system, report);
    if (!factor ||
        !factor->factor(system.km, system.km.K_value, system.border.K_fr, system.border.K_rr, report))
        return false;
    report.clock.begin("solve");
    const std::vector<double> F = u;
    if (!factor->solve(u)) {
        report.fail(RunStatus::failed, "the solution cannot go on: " + factor->error());
        return false;
    }
    std::vector<double> Ku(u.size());
    multiply(system.km, system.km.K_value, std::span(u).first(system.numbering.free_dofs.size()), Ku);
    multiply_border(system.border, system.border.K_fr, system.border.K_rr, u, Ku, 1);
    for (std::size_t k = 0; k < Ku.size(); ++k) Ku[k] -= F[k];
    const double load = norm(F);
    report.residual = load > 0 ? norm(Ku) / load : norm(Ku);

    if (!std::isfinite(norm(u))) {  // nothing to store: an earlier result file stays
        report.fail(RunStatus::failed, "the displacements are not finite numbers");
        return false;
    }
    report_free_motion(store, system, *factor, report);
    return true;
}

void store_displacements(ModelStore& store, const LinearSystem& system, std::span<const double> u) {
    store.results.resize(static_columns, store.mesh.dof_num);
    expand_solution(store.mesh, system.numbering, system.rigid, u,
                    std::span(store.results.mode_vec).first(store.mesh.dof_num));
    store.fn_free = store.mesh.dof_num;
}

void report_reactions(const ModelStore& store, const LinearSystem& system, const PointResults& points,
                      std::span<const double> q, std::span<const double> nodal, RunReport& report) {
    const Mesh& mesh = store.mesh;
    const RigidSystem& rigid = system.rigid;
    std::vector<char> wanted(mesh.node_num(), 0);
    for (std::int32_t n : system.numbering.fixed_nodes) wanted[n] = 1;
    std::vector<Vec6> springs, loads;
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        const auto number = static_cast<std::int32_t>(b);
        for (std::int32_t n : rigid.bodies[b].members) wanted[n] = !rigid.bodies[b].fixed.empty();
        springs.push_back(spring_resistance(store.rigid_combines, rigid, number, q));
        loads.push_back(resultant(rigid.bodies[b], {}, mesh, nodal));
        const Vec6 own = rigid_force_resultant(rigid, number, {}, store.rigid_forces);
        for (std::size_t c = 0; c < 6; ++c) loads[b][c] += own[c];
    }
    report.reaction =
        sum_reactions(system.numbering, rigid, internal_forces(mesh, points, wanted), springs, loads);
}

void recover(ModelStore& store, const Settings& settings, const LinearSystem& system,
             std::span<const double> q, std::span<const double> nodal, RunReport& report) {
    console::print("Strain Analysis\n");
    const Mesh& mesh = store.mesh;
    const std::size_t dofs = mesh.dof_num;
    PointResults points;
    const std::span<const double> u(store.results.mode_vec.data(), dofs);
    point_stresses(mesh, store.parts, system.elasticity, u, settings.threads(), points);
    mean_stress_strain(mesh, system.node_elements, points, {}, settings.threads(),
                       std::span(store.results.node_stress).first(stress_groups * dofs));
    report_reactions(store, system, points, q, nodal, report);
    report_largest(store, 0, report);
}

bool analyse(ModelStore& store, const Settings& settings, RunReport& report) {
    LinearSystem system;
    if (!build_linear_system(store, settings, system, report)) return false;
    console::print("Force Vector\n");
    LoadVector load = build_loads(store.forces, store.mesh, system.numbering,
                                  unstrained_diagonal(store, system.numbering, system.rigid, system.km));
    console::print("Force Vector Complete\n");
    report_loads(store, system, load, report);
    std::vector<double> nodal(store.mesh.dof_num, 0.0);
    for (std::size_t k = 0; k < load.F.size(); ++k) nodal[system.numbering.free_dofs[k]] = load.F[k];
    const std::vector<std::int32_t> free_dofs = system.numbering.free_dofs;
    transform_rigid(store, system, false);
    std::vector<double> q =
        reduce_loads(store.mesh, store.rigid_forces, system.rigid, {}, system.numbering, free_dofs, load.F);
    report.free_dofs = system.equations();
    if (system.equations() == 0) {
        report.fail(RunStatus::failed, "the rigid elements and supports leave no motion: nothing to solve");
        return false;
    }
    console::print("Static Analysis Start\n");
    if (!solve(store, settings, system, q, report)) return false;
    report.clock.begin("recover");
    store_displacements(store, system, q);
    system.km = {};
    recover(store, settings, system, std::span<const double>(q).subspan(system.numbering.free_dofs.size()),
            nodal, report);
    return true;
}

}  // namespace

RunReport run_static(ModelStore& store, const Settings& settings) {
    return run_linear(store, settings, AnalysisType::linear_static,
                      [&](RunReport& report) { return analyse(store, settings, report); });
}

RunReport exec_static() {
    return run_static(model_store(), settings());
}

}  // namespace kestralum

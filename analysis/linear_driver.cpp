#include "analysis/linear_driver.h"

#include <cmath>

#include "analysis/linear_system.h"
#include "elements/loads.h"
#include "elements/stresses.h"
#include "model/console.h"

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

void report_loads(const ModelStore& store, const LinearSystem& system, const LoadVector& load, RunReport& report) {
    report_unused_records(store, system.numbering, load, report);
    for (std::size_t k = 0; k < system.numbering.free_dofs.size(); ++k)
        report.applied[static_cast<std::size_t>(system.numbering.free_dofs[k] % 3)] += load.F[k];
}

bool solve(const ModelStore& store, const Settings& settings, const LinearSystem& system, std::vector<double>& u, RunReport& report) {
    const auto factor = plan_factor(system.km, store.diag_num, settings, report);
    if (!factor || !run_factorization(system.km, system.km.K_value, *factor, report)) return false;
    report.clock.begin("solve");
    const std::vector<double> F = u;
    if (!factor->solve_ldl(u)) {
        report.fail(RunStatus::failed, "the solution cannot go on: " + factor->error());
        return false;
    }
    std::vector<double> Ku(u.size());
    multiply(system.km, system.km.K_value, u, Ku);
    for (std::size_t k = 0; k < Ku.size(); ++k) Ku[k] -= F[k];
    const double load = norm(F);
    report.residual = load > 0 ? norm(Ku) / load : norm(Ku);

    if (!std::isfinite(norm(u))) {  // nothing to store: an earlier result file stays
        report.fail(RunStatus::failed, "the displacements are not finite numbers");
        return false;
    }
    const std::int32_t loose = find_free_motion(system.km, system.km.K_value, *factor);
    if (loose >= 0) {
        const std::int32_t dof = system.numbering.free_dofs[static_cast<std::size_t>(loose)];
        const auto x = place_of_node(store.mesh, static_cast<std::size_t>(dof / 3));
        report.fail(RunStatus::failed, console::format("the body is free: the supports do not hold node %d at (%.6g, %.6g, %.6g) in %c",
                                                       dof / 3 + 1, x[0], x[1], x[2], "xyz"[dof % 3]));
    }
    return true;
}

void store_displacements(ModelStore& store, const LinearSystem& system, std::span<const double> u) {
    store.results.resize(static_columns, store.mesh.dof_num);
    for (std::size_t k = 0; k < u.size(); ++k) store.results.mode_vec[static_cast<std::size_t>(system.numbering.free_dofs[k])] = u[k];
    store.fn_free = store.mesh.dof_num;
}

void recover(ModelStore& store, const Settings& settings, const LinearSystem& system, RunReport& report) {
    console::print("Strain Analysis\n");
    const Mesh& mesh = store.mesh;
    const auto dofs = static_cast<std::size_t>(mesh.dof_num);
    PointResults points;
    const std::span<const double> u(store.results.mode_vec.data(), dofs);
    point_stresses(mesh, store.parts, system.elasticity, u, settings.threads(), points);
    mean_stress_strain(mesh, system.node_elements, points, {}, settings.threads(),
                       std::span(store.results.node_stress).first(stress_groups * dofs));

    std::vector<char> fixed(static_cast<std::size_t>(mesh.node_num()), 0);
    for (std::int32_t n : system.numbering.fixed_nodes) fixed[static_cast<std::size_t>(n)] = 1;
    const std::vector<double> reaction = internal_forces(mesh, points, fixed);
    for (std::size_t k = 0; k < reaction.size(); ++k) report.reaction[k % 3] += reaction[k];

    report_largest(store, 0, report);
}

bool analyse(ModelStore& store, const Settings& settings, RunReport& report) {
    LinearSystem system;
    if (!build_linear_system(store, settings, system, report)) return false;
    console::print("Force Vector\n");
    LoadVector load = build_loads(store.forces, store.mesh, system.numbering, system.km);
    console::print("Force Vector Complete\n");
    report_loads(store, system, load, report);
    console::print("Static Analysis Start\n");
    if (!solve(store, settings, system, load.F, report)) return false;
    report.clock.begin("recover");
    store_displacements(store, system, load.F);
    system.km = {};
    recover(store, settings, system, report);
    return true;
}

}  // namespace

RunReport run_static(ModelStore& store, const Settings& settings) {
    return run_linear(store, settings, AnalysisType::linear_static,
                      [&](RunReport& report) { return analyse(store, settings, report); });
}

RunReport exec_static() { return run_static(model_store(), settings()); }

}  // namespace kestralum

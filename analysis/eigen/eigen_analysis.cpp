#include "analysis/eigen/eigen_analysis.h"

#include <algorithm>
#include <cmath>

#include "analysis/eigen/eigen_problem.h"
#include "analysis/eigen/lanczos.h"
#include "analysis/eigen/subspace.h"
#include "elements/stresses.h"
#include "model/console.h"
#include "system/linear_system.h"

namespace kestralum {

namespace {

bool check_densities(const ModelStore& store, RunReport& report) {
    for (std::int32_t part : store.mesh.p_ele_part_id) {
        const Material& material = store.materials[store.parts[part].material_id];
        if (material.density > 0) continue;
        report.fail(RunStatus::bad_input,
                    console::format("material %s: an eigen analysis needs a density greater than 0, not %.6g",
                                    material.name.c_str(), material.density));
        return false;
    }
    return true;
}

// Translations along and rotations about the axes through the box's centre, on the free degrees of
// freedom and on the rigid bodies: n × 6.
std::vector<double> rigid_motions(const Mesh& mesh, const DofNumbering& numbering, const RigidSystem& rigid) {
    const std::size_t nf = numbering.free_dofs.size(), n = nf + static_cast<std::size_t>(rigid.equations);
    std::vector<double> out(6 * n, 0.0);
    double centre[3];
    for (std::size_t c = 0; c < 3; ++c) centre[c] = 0.5 * (mesh.size_info[c] + mesh.size_info[c + 3]);
    for (const RigidBody& body : rigid.bodies)
        for (std::size_t k = 0; k < body.motions.size(); ++k) {
            const std::size_t row = nf + static_cast<std::size_t>(body.first) + k;
            const Vec6& m = body.motions[k];
            for (std::size_t a = 0; a < 3; ++a) {
                Vec3 axis{};
                axis[a] = 1;
                const Vec3 v = cross(
                    axis, {body.pivot[0] - centre[0], body.pivot[1] - centre[1], body.pivot[2] - centre[2]});
                out[a * n + row] = m[a];  // the motions are orthogonal: a part is a product
                out[(3 + a) * n + row] = m[0] * v[0] + m[1] * v[1] + m[2] * v[2] + m[3 + a];
            }
        }
    for (std::size_t k = 0; k < nf; ++k) {
        const auto dof = static_cast<std::size_t>(numbering.free_dofs[k]), c = dof % 3;
        const double* x = &mesh.coordinates[dof - c];
        out[c * n + k] = 1;
        // rotation about axis a: u = e_a × (x - centre)
        out[(3 + (c + 1) % 3) * n + k] = x[(c + 2) % 3] - centre[(c + 2) % 3];
        out[(3 + (c + 2) % 3) * n + k] = -(x[(c + 1) % 3] - centre[(c + 1) % 3]);
    }
    return out;
}

// φᵀ M φ = 1, and what is reported of every mode.
void normalise_and_report(EigenProblem& problem, const LinearSystem& system, std::int32_t modes,
                          EigenPairs& pairs, RunReport& report) {
    const std::size_t n = problem.n();
    console::print("Normalize mode_vec by modal mass\n");
    std::vector<double> M(n), K(n), all(3 * n, 0.0), M_all(3 * n);
    const std::vector<std::int32_t>& free_dofs = system.numbering.free_dofs;
    for (std::size_t k = 0; k < free_dofs.size(); ++k)
        all[static_cast<std::size_t>(free_dofs[k] % 3) * n + k] = 1;
    for (const RigidBody& body : system.rigid.bodies)
        for (std::size_t k = 0; k < body.motions.size(); ++k)
            for (std::size_t d = 0; d < 3; ++d)
                all[d * n + free_dofs.size() + static_cast<std::size_t>(body.first) + k] = body.motions[k][d];
    problem.multiply_m(all, M_all, 3);
    double first_elastic = 0;
    for (double l : pairs.lambda)
        if (first_elastic == 0 && l > problem.rounding()) first_elastic = l;
    std::vector<double> modal_mass;
    for (std::int32_t j = 0; j < modes; ++j) {
        const std::span<double> phi(pairs.vectors.data() + static_cast<std::size_t>(j) * n, n);
        problem.multiply_m(phi, M, 1);
        double mass = 0;
        for (std::size_t i = 0; i < n; ++i) mass += phi[i] * M[i];
        const double scale = 1 / std::sqrt(mass);
        for (std::size_t i = 0; i < n; ++i) {
            phi[i] *= scale;
            M[i] *= scale;
        }
        problem.multiply_k(phi, K, 1);
        ModeReport mode;
        mode.lambda = pairs.lambda[j];
        mode.frequency = frequency_of(mode.lambda);
        mode.zero = std::abs(mode.lambda) < 1e-6 * first_elastic;
        double error = 0, size = 0, check = 0;
        for (std::size_t i = 0; i < n; ++i) {
            error += std::pow(K[i] - mode.lambda * M[i], 2);
            size += std::pow(K[i] + first_elastic * M[i], 2);
            check += phi[i] * M[i];
        }
        mode.residual = std::sqrt(error / size);
        modal_mass.push_back(check);
        for (std::size_t d = 0; d < 3; ++d) {
            double participation = 0;
            for (std::size_t i = 0; i < n; ++i) participation += phi[i] * M_all[d * n + i];
            mode.effective_mass[d] = participation * participation;
        }
        report.modes.push_back(mode);
    }
    console::print("Sorting Eigen Values\n");
    for (std::int32_t j = 0; j < modes; ++j)
        console::print("index:%d,freq=%lf, modal Mass=%.5e\n", j, report.modes[j].frequency, modal_mass[j]);
}

// Mode shapes on all degrees of freedom and the strains and stresses they mean.
void store_modes(ModelStore& store, const Settings& settings, const LinearSystem& system,
                 const EigenPairs& pairs, const RunReport& report) {
    const std::size_t modes = report.modes.size(), n = static_cast<std::size_t>(system.equations());
    const std::size_t dofs = store.mesh.dof_num;
    store.results.resize(static_cast<std::int32_t>(modes), store.mesh.dof_num);
    console::print("Strain Analysis\n");
    PointResults points;
    for (std::size_t j = 0; j < modes; ++j) {
        store.results.n_freq[j] = report.modes[j].frequency;
        const std::span<double> shape = std::span(store.results.mode_vec).subspan(j * dofs, dofs);
        expand_solution(store.mesh, system.numbering, system.rigid,
                        std::span(pairs.vectors).subspan(j * n, n), shape);
        point_stresses(store.mesh, store.parts, system.elasticity, shape, settings.threads(), points);
        mean_stress_strain(
            store.mesh, system.node_elements, points, {}, settings.threads(),
            std::span(store.results.node_stress).subspan(j * stress_groups * dofs, stress_groups * dofs));
    }
    store.fn_free = store.mesh.dof_num;
}

// Sylvester's check where the method has not made it.
bool check_completeness(EigenProblem& problem, const EigenPairs& pairs, const SpectrumGap& gap,
                        RunReport& report) {
    if (gap.below > 0 && report.check_frequency == 0) {
        report.modes_counted = problem.count_below(gap.lambda);
        if (report.modes_counted < 0) return false;
        report.modes_found =
            std::count_if(pairs.lambda.begin(), pairs.lambda.end(), [&](double l) { return l < gap.lambda; });
        report.check_frequency = frequency_of(gap.lambda);
    }
    if (gap.below == 0)
        report.remarks.notices.push_back(
            "no clear gap in the spectrum above the modes asked for: their number could not be checked");
    if (report.modes_found != report.modes_counted)
        report.fail(
            RunStatus::failed,
            console::format("modes below %.6g Hz: %lld found, %lld counted: the result is not complete",
                            report.check_frequency, static_cast<long long>(report.modes_found),
                            static_cast<long long>(report.modes_counted)));
    return true;
}

bool analyse(ModelStore& store, const Settings& settings, EigenMethod method, EigenTolerances tolerances,
             RunReport& report) {
    LinearSystem system;
    if (!build_linear_system(store, settings, system, report)) return false;
    transform_rigid(store, system, true);
    report.free_dofs = system.equations();
    if (system.equations() == 0) {
        report.fail(RunStatus::failed, "the rigid elements and supports leave no motion: nothing to solve");
        return false;
    }
    console::print("Eigen Analysis Start\n");
    EigenOptions options;
    options.n_mode = std::min(store.mode_count, store.fn_free);
    if (options.n_mode < store.mode_count)
        report.remarks.notices.push_back(console::format(
            "%d modes were asked for: %d degrees of freedom are free and as many modes there are",
            store.mode_count, store.fn_free));
    options.supported = !store.boundary_conditions.empty();
    options.c_eigen_shift = settings.c_eigen_shift;
    options.subspace_tolerance = tolerances.subspace;
    options.lanczos_tolerance = tolerances.lanczos;
    if (!options.supported) options.rigid_motions = rigid_motions(store.mesh, system.numbering, system.rigid);
    auto factor = plan_bordered(store, settings, system, report);
    if (!factor) return false;
    EigenProblem problem(system.km, system.border, std::move(factor), settings.threads(), report);
    if (!problem.shift(0.6283185307 * 0.6283185307, false)) return false;
    EigenPairs pairs;
    SpectrumGap gap;
    const bool solved = method == EigenMethod::subspace ? subspace_iteration(problem, options, pairs, gap)
                                                        : lanczos(problem, options, pairs, gap);
    if (!solved || !check_completeness(problem, pairs, gap, report)) return false;
    report.negative_pivots = 0;  // shifted matrices have them by design
    const std::int32_t modes = std::min(options.n_mode, static_cast<std::int32_t>(pairs.lambda.size()));
    normalise_and_report(problem, system, modes, pairs, report);
    constexpr double unresolved = 0.05;  // of ‖(K + λ₁M)φ‖: no mode of this pair at all
    for (std::size_t j = 0; j < report.modes.size() && report.status == RunStatus::done; ++j)
        if (!(report.modes[j].residual < unresolved))
            report.fail(RunStatus::failed,
                        console::format(
                            "mode %zu at %.6g Hz is not resolved in double precision: its residual is %.1e",
                            j + 1, report.modes[j].frequency, report.modes[j].residual));
    report.clock.begin("recover");
    store_modes(store, settings, system, pairs, report);
    return true;
}

}  // namespace

RunReport run_eigen(ModelStore& store, const Settings& settings, EigenMethod method,
                    EigenTolerances tolerances) {
    RunReport report;
    if (check_analysable(store, report) && !check_densities(store, report)) return report;
    return run_linear(store, settings, AnalysisType::eigen, [&](RunReport& run_report) {
        return analyse(store, settings, method, tolerances, run_report);
    });
}

RunReport exec_eigen_subspace() {
    return run_eigen(model_store(), settings(), EigenMethod::subspace);
}
RunReport exec_eigen_lanczos() {
    return run_eigen(model_store(), settings(), EigenMethod::lanczos);
}

}  // namespace kestralum

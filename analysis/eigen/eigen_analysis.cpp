#include "analysis/eigen/eigen_analysis.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "analysis/eigen/eigen_problem.h"
#include "analysis/eigen/lanczos.h"
#include "analysis/eigen/modes_by_iteration.h"
#include "analysis/eigen/rigid_motions.h"
#include "analysis/eigen/subspace.h"
#include "analysis/linear_run.h"
#include "analysis/static/stress_stiffness.h"
#include "model/format.h"

namespace kestralum {

namespace {

using Method = bool (*)(EigenProblem& problem, const EigenOptions& options, EigenPairs& out,
                        SpectrumGap& gap);

}  // namespace

bool check_densities(Job& job) {
    for (std::int32_t part : job.model.mesh.p_ele_part_id) {
        const Material& material = job.model.materials[job.model.parts[part].material_id];
        if (!(material.density > 0))
            return job.fail(
                RunStatus::bad_input,
                formatted("material %s: an eigen analysis needs a density greater than 0, not %.6g",
                          material.name.c_str(), material.density));
    }
    return true;
}

namespace {

// Scales φ to φᵀ M φ = 1 and reports the mode; M_all: M times the translations. Returns φᵀ M φ as it comes
// out.
double normalise(EigenProblem& problem, std::span<double> phi, double lambda, double first_elastic,
                 std::span<const double> M_all) {
    const std::size_t n = phi.size();
    std::vector<double> M(n), K(n);
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
    mode.lambda = lambda;
    mode.frequency = frequency_of(lambda);
    mode.zero = std::abs(lambda) < 1e-6 * first_elastic;
    double error = 0, size = 0, modal_mass = 0;
    for (std::size_t i = 0; i < n; ++i) {
        error += std::pow(K[i] - lambda * M[i], 2);
        size += std::pow(K[i] + first_elastic * M[i], 2);
        modal_mass += phi[i] * M[i];
    }
    mode.residual = std::sqrt(error / size);
    for (std::size_t d = 0; d < 3; ++d) {
        double participation = 0;
        for (std::size_t i = 0; i < n; ++i) participation += phi[i] * M_all[d * n + i];
        mode.effective_mass[d] = participation * participation;
    }
    problem.report().modes.push_back(mode);
    return modal_mass;
}

void normalise_all(EigenProblem& problem, const AssembledSystem& system, std::int32_t modes,
                   EigenPairs& pairs) {
    const std::size_t n = problem.n();
    problem.progress().print("Normalize mode_vec by modal mass\n");
    std::vector<double> M_all(3 * n), modal_mass;
    problem.multiply_m(translations(system), M_all, 3);
    double first_elastic = 0;
    for (double l : pairs.lambda)
        if (first_elastic == 0 && l > problem.rounding()) first_elastic = l;
    if (first_elastic == 0) first_elastic = problem.elastic_scale();
    for (std::int32_t j = 0; j < modes; ++j)
        modal_mass.push_back(
            normalise(problem, {pairs.vectors.data() + j * n, n}, pairs.lambda[j], first_elastic, M_all));
    problem.progress().print("Sorting Eigen Values\n");
    for (std::int32_t j = 0; j < modes; ++j)
        problem.progress().print("index:%d,freq=%lf, modal Mass=%.5e\n", j,
                                 problem.report().modes[j].frequency, modal_mass[j]);
}

// Residuals, as shares of ‖(K + λ₁M)φ‖: what is above is no mode, or one of few digits.
constexpr double unresolved = 1e-3, coarse = 1e-6;

}  // namespace

bool check_resolved(Job& job) {
    std::size_t worst = 0;
    const std::vector<ModeReport>& modes = job.report().modes;
    for (std::size_t j = 0; j < modes.size(); ++j) {
        if (!(modes[j].residual <= unresolved))
            return job.fail(
                RunStatus::failed,
                formatted("mode %zu at %.6g Hz is not resolved in double precision: its residual is %.1e",
                          j + 1, modes[j].frequency, modes[j].residual));
        if (modes[j].residual > modes[worst].residual) worst = j;
    }
    if (!modes.empty() && modes[worst].residual > coarse)
        job.note(formatted("mode %zu at %.6g Hz has few digits: its residual is %.1e", worst + 1,
                           modes[worst].frequency, modes[worst].residual));
    return true;
}

namespace {

bool store_modes(Job& job, const AssembledSystem& system, const EigenPairs& pairs) {
    std::vector<double> frequencies;
    for (const ModeReport& mode : job.report().modes) frequencies.push_back(mode.frequency);
    return store_shapes(job, system, frequencies, pairs.vectors);
}

// As many modes as were asked for, and as many below a gap above them as the pivots count there (Sylvester's
// law of inertia), where the method has not counted already.
bool check_complete(EigenProblem& problem, const EigenPairs& pairs, SpectrumGap gap, std::int32_t wanted) {
    Job& job = problem.job();
    RunReport& report = job.report();
    if (static_cast<std::int32_t>(pairs.lambda.size()) < wanted)
        return job.fail(RunStatus::failed, formatted("%zu of %d modes were found: the result is not complete",
                                                     pairs.lambda.size(), wanted));
    if (gap.below > 0 && report.check_frequency == 0) {
        const std::int64_t counted = problem.count_below(gap.lambda, gap.slack);
        if (counted == EigenProblem::unsound_count) {
            gap.below = 0;
        } else {
            if (counted < 0) return false;
            report.modes_counted = counted;
            report.modes_found = std::count_if(pairs.lambda.begin(), pairs.lambda.end(),
                                               [&](double l) { return l < gap.lambda; });
            report.check_frequency = frequency_of(gap.lambda);
        }
    }
    if (gap.below == 0)
        job.note("no clear gap in the spectrum above the modes asked for: their number could not be checked");
    return report.modes_found == report.modes_counted ||
           job.fail(RunStatus::failed,
                    formatted("modes below %.6g Hz: %ld found, %ld counted: the result is not complete",
                              report.check_frequency, report.modes_found, report.modes_counted));
}

EigenOptions eigen_options(Job& job, const AssembledSystem& system) {
    EigenOptions options;
    const std::int32_t wanted = job.model.mode_count, most = system.equations();
    options.n_mode = std::min(wanted, most);
    if (options.n_mode < wanted)
        job.note(
            formatted("%d modes were asked for: %d degrees of freedom are free and as many modes there are",
                      wanted, most));
    options.c_eigen_shift = job.settings.c_eigen_shift;
    options.rigid_motions = free_rigid_motions(job, system);
    options.rigid = static_cast<std::int32_t>(options.rigid_motions.size()) / std::max(most, 1);
    if (options.rigid > 0 && !job.model.boundary_conditions.empty())
        job.note(formatted("the supports leave %d rigid motion%s: as many modes are zero", options.rigid,
                           options.rigid == 1 ? "" : "s"));
    return options;
}

// [K] with the stiffness of the stresses that the loads make: what a stressed body swings with.
bool assemble_stressed(Job& job, AssembledSystem& system, int factors_on_disk,
                       std::unique_ptr<BorderedFactor>& factor) {
    StressStiffness stress;
    if (!find_stress_stiffness(job, system,
                               {.with_mass = true,
                                .factors_on_disk = factors_on_disk,
                                .direct = "the stiffness of a stressed body need not be positive"},
                               factor, stress))
        return false;
    if (!stress.stressed)
        job.note("prestress: no load stresses the body, the modes are those without");
    else if (job.options.load_case.empty())
        job.note("prestress: the modes are those of the body under the stresses of all loads");
    else
        job.note("prestress: the modes are those of the body under the stresses of " + job.options.load_case);
    const auto add = [](const std::vector<double>& from, std::vector<double>& to) {
        for (std::size_t k = 0; k < to.size(); ++k) to[k] += from[k];
    };
    add(stress.G, system.km.K_value);
    add(stress.G_fr, system.border.K_fr);
    add(stress.G_rr, system.border.K_rr);
    return true;
}

// Tells what eigenvalues below zero mean: a stressed body that is no longer stable.
void note_buckled(EigenProblem& problem, const EigenPairs& pairs) {
    Job& job = problem.job();
    if (pairs.lambda.empty()) return;
    const double limit = -std::max(problem.rounding(), 1e-9 * std::abs(pairs.lambda.back()));
    const auto below = std::ranges::count_if(pairs.lambda, [limit](double l) { return l < limit; });
    if (below > 0)
        job.note(
            formatted("the prestress is beyond buckling: %ld eigenvalue%s found below zero, the lowest "
                      "%.6g 1/s^2; such a motion grows instead of swinging and stands at 0 Hz",
                      static_cast<long>(below), below == 1 ? " is" : "s are", pairs.lambda.front()));
}

bool work(Job& job, AssembledSystem& system, Method method, int factors_on_disk) {
    const bool prestress = job.options.prestress;
    std::unique_ptr<BorderedFactor> factor;
    if (prestress) {
        if (!assemble_stressed(job, system, factors_on_disk, factor)) return false;
    } else if (!assemble_system(job, system) || !transform_rigid(job, system, true)) {
        return false;
    }
    job.progress.print("Eigen Analysis Start\n");
    const EigenOptions options = eigen_options(job, system);
    if (!factor) factor = plan_bordered(job, system, factors_on_disk, true);
    if (!factor) return false;
    auto* const levels = prestress ? nullptr : dynamic_cast<IterativeFactor*>(factor->free());
    EigenProblem problem(job, system, std::move(factor));
    EigenPairs pairs;
    if (levels) {
        if (modes_by_iteration(problem, system, options, *levels, pairs)) {
            normalise_all(problem, system, options.n_mode, pairs);
            return check_resolved(job) && store_modes(job, system, pairs);
        }
        if (job.report().status != RunStatus::done) return false;
    }
    if (!problem.shift(0.6283185307 * 0.6283185307, false)) return false;
    SpectrumGap gap;
    if (!method(problem, options, pairs, gap)) return false;
    if (prestress) note_buckled(problem, pairs);
    if (!check_complete(problem, pairs, gap, options.n_mode)) return false;
    problem.begin_files();
    job.report().negative_pivots = 0;  // shifted matrices have them by design
    normalise_all(problem, system, options.n_mode, pairs);
    return check_resolved(job) && store_modes(job, system, pairs) && problem.await_files();
}

Run analyse(const Model& model, const Settings& settings, const RunOptions& options, Progress& progress,
            const char* word, Method method, int factors_on_disk) {
    Run run;
    begin_run(run, model, settings, options, AnalysisType::eigen, word);
    run_linear({model, settings, options, progress, run}, check_densities,
               [&](Job& job, AssembledSystem& system) { return work(job, system, method, factors_on_disk); });
    return run;
}

}  // namespace

Run analyse_eigen_subspace(const Model& model, const Settings& settings, const RunOptions& options,
                           Progress& progress) {
    return analyse(model, settings, options, progress, "eigen-subspace", subspace_iteration, 1);
}

Run analyse_eigen_lanczos(const Model& model, const Settings& settings, const RunOptions& options,
                          Progress& progress) {
    constexpr int with_w = 2;  // the factor W of [M] lies beside that of [K]
    return analyse(model, settings, options, progress, "eigen-lanczos", lanczos, with_w);
}

}  // namespace kestralum

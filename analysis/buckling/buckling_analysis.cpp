#include "analysis/buckling/buckling_analysis.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "analysis/buckling/load_factors.h"
#include "analysis/linear_run.h"
#include "analysis/static/stress_stiffness.h"
#include "model/format.h"

namespace kestralum {

namespace {

// Residuals: what is above is no shape, or one of few digits.
constexpr double unresolved = 1e-3, coarse = 1e-6;

// ‖(K + λG)φ‖ / ‖Kφ‖
double residual_of(BucklingProblem& problem, std::span<const double> phi, double factor) {
    const std::size_t n = phi.size();
    std::vector<double> K(n), G(n);
    problem.multiply_m(phi, K, 1);
    problem.multiply_k(phi, G, 1);
    double error = 0, size = 0;
    for (std::size_t i = 0; i < n; ++i) {
        error += std::pow(K[i] + factor * G[i], 2);
        size += K[i] * K[i];
    }
    return std::sqrt(error / size);
}

bool report_factors(BucklingProblem& problem, const LoadFactors& found, std::int32_t wanted) {
    Job& job = problem.job();
    BucklingReport& report = job.report().buckling;
    const std::size_t n = problem.n(), many = std::min<std::size_t>(found.factor.size(), wanted);
    for (std::size_t j = 0; j < many; ++j) {
        const double residual =
            residual_of(problem, std::span(found.vectors).subspan(j * n, n), found.factor[j]);
        report.factors.push_back({found.factor[j], residual});
        job.progress.print("index:%zu,load factor=%e,residual=%.1e\n", j, found.factor[j], residual);
        if (!(residual <= unresolved))
            return job.fail(RunStatus::failed, formatted("load factor %zu, %.6g, is not resolved in double "
                                                         "precision: its residual is %.1e",
                                                         j + 1, found.factor[j], residual));
    }
    if (report.factors.size() < std::size_t(wanted)) {
        const std::string numbers =
            formatted("%d load factors were asked for: %zu ", wanted, report.factors.size());
        if (!found.all)
            return job.fail(RunStatus::failed, numbers + "were found, the result is not complete");
        job.note(numbers + "are above zero");
    }
    const auto worst = std::ranges::max_element(report.factors, {}, &LoadFactorReport::residual);
    if (worst != report.factors.end() && worst->residual > coarse)
        job.note(formatted("load factor %zu, %.6g, has few digits: its residual is %.1e",
                           worst - report.factors.begin() + 1, worst->factor, worst->residual));
    if (report.found != report.counted)
        return job.fail(
            RunStatus::failed,
            formatted("load factors below %.6g: %ld found, %ld counted: the result is not complete",
                      report.check_factor, report.found, report.counted));
    return true;
}

// What the user should know of the first factor.
void note_first(Job& job, const LoadFactors& found, double strain) {
    constexpr double large_strain = 0.02;
    const double first = found.factor.front();
    if (first < 1)
        job.note(formatted("the loads are beyond buckling: the first load factor, %.6g, is below 1", first));
    if (found.reversed != 0 && -found.reversed < first)
        job.note(
            formatted("with the loads reversed the body buckles at a factor of %.6g, nearer than the first "
                      "one above zero: factors below zero are not counted",
                      found.reversed));
    if (first * strain > large_strain)
        job.note(
            formatted("at the first load factor strains reach %.2g: linear buckling, which knows small "
                      "ones only, says little there",
                      first * strain));
}

// Scales a shape to a largest displacement of 1, its largest component above zero.
void normalise(std::span<double> u) {
    double largest = 0, component = 0;
    for (std::size_t d = 0; d + 2 < u.size(); d += 3) {
        largest = std::max(largest, std::hypot(u[d], u[d + 1], u[d + 2]));
        for (std::size_t c = d; c < d + 3; ++c)
            if (std::abs(u[c]) > std::abs(component)) component = u[c];
    }
    if (largest == 0) return;
    const double scale = (component < 0 ? -1 : 1) / largest;
    for (double& v : u) v *= scale;
}

// [G] comes into the place of [K], and [K] into that of [M].
void exchange(AssembledSystem& system, StressStiffness& stress) {
    system.km.M_value = std::exchange(system.km.K_value, std::move(stress.G));
    system.border.M_fr = std::exchange(system.border.K_fr, std::move(stress.G_fr));
    system.border.M_rr = std::exchange(system.border.K_rr, std::move(stress.G_rr));
}

bool work(Job& job, AssembledSystem& system) {
    StressStiffness stress;
    std::unique_ptr<BorderedFactor> factor;
    if (!find_stress_stiffness(
            job, system, {.direct = "K + λG, which buckling is counted by, is not positive"}, factor, stress))
        return false;
    if (!stress.stressed)
        return job.fail(RunStatus::failed,
                        "no load stresses the body: there is nothing that could buckle it");
    exchange(system, stress);
    job.progress.print("Buckling Analysis Start\n");
    job.clock.begin("iterate");
    BucklingProblem problem(job, system, std::move(factor));
    const std::int32_t wanted = std::max(job.model.mode_count, 1);
    LoadFactors found;
    if (!find_load_factors(problem, std::min(wanted, problem.n()), found)) return false;
    problem.begin_files();
    job.report().negative_pivots = 0;  // shifted matrices have them by design
    if (!report_factors(problem, found, wanted)) return false;
    note_first(job, found, stress.strain);
    const std::span<const double> stored =
        std::span(found.factor).first(job.report().buckling.factors.size());
    return store_shapes(job, system, stored, found.vectors, normalise) && problem.await_files();
}

}  // namespace

Run analyse_buckling(const Model& model, const Settings& settings, const RunOptions& options,
                     Progress& progress) {
    Run run;
    begin_run(run, model, settings, options, AnalysisType::buckling, "buckling");
    run_linear({model, settings, options, progress, run}, nullptr, work);
    return run;
}

}  // namespace kestralum
